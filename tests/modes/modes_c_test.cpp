// The library of modes through its interface for C, and through the module of Fortran on it: the bits of the interface
// for C++, a status for each error, and texts that stay in their buffers.
#include <tessel/modes.h>
#include <tessel/modes_c.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

extern "C" int fortran_find(const double* re, const double* im, int n, int first, int stop_at, tessel_mode* modes,
                            int room, double* beside, int* letters);
extern "C" int fortran_find_jointly(const double* re, const double* im, int n, int records, int shorter,
                                    tessel_mode* modes, int room, double* beside, int* letters);

namespace {

using Complex = std::complex<double>;
using Owner = std::unique_ptr<tessel_modes_result, decltype(&tessel_modes_free)>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Two lines and a little noise of a plain generator, turning if complex.
std::vector<Complex> record(std::size_t n, bool complex, unsigned state = 1)
{
    std::vector<Complex> y(n);
    const auto noise = [&] { return 1e-5 * ((state = state * 1664525U + 1013904223U) / 4294967296.0 - 0.5); };
    for (std::size_t k = 0; k < n; ++k) {
        const auto t = static_cast<double>(k);
        y[k] = std::polar(std::exp(-0.0004 * t), 0.13 * t + 0.3) + std::polar(0.4 * std::exp(-0.002 * t), 0.21 * t);
        y[k] = {y[k].real() + noise(), complex ? y[k].imag() + noise() : 0.0};
    }
    return y;
}

std::vector<double> real(const std::vector<Complex>& y)
{
    std::vector<double> part;
    for (const Complex& v : y)
        part.push_back(v.real());
    return part;
}

tessel_modes_options defaults()
{
    tessel_modes_options options;
    tessel_modes_options_init(&options, sizeof options);
    return options;
}

struct Outcome
{
    tessel_modes_status status;
    Owner result;
    std::string message;
};

Outcome analyse(const std::vector<double>& y, double start = 2, double spacing = 0.5,
                const tessel_modes_options* options = nullptr)
{
    tessel_modes_result* result = nullptr;
    char message[100] = "unset";
    const tessel_modes_status status =
        tessel_modes_analyse(y.data(), y.size(), start, spacing, options, &result, message, sizeof message);
    return {status, Owner(result, tessel_modes_free), message};
}

void expect_mode(const tessel_mode& c, const tessel::modes::Mode& m)
{
    const double is[] = {c.frequency, c.decay,      c.quality,      c.amplitude, c.phase,       c.frequency_se,
                         c.decay_se,  c.quality_se, c.amplitude_se, c.phase_se,  c.significance};
    const double expected[] = {m.frequency,      m.decay,          m.quality,     m.amplitude,
                               m.phase,          m.frequencyError, m.decayError,  m.qualityError,
                               m.amplitudeError, m.phaseError,     m.significance};
    EXPECT_EQ(std::memcmp(is, expected, sizeof is), 0);
    EXPECT_EQ(c.kind, static_cast<int>(m.kind));
}

void expect_result(const tessel_modes_result* c, const tessel::modes::Result& r)
{
    ASSERT_GE(r.modes.size(), 2U);
    std::vector<tessel_mode> modes(r.modes.size());
    ASSERT_EQ(tessel_modes_list(c, 0, modes.data(), modes.size(), sizeof modes[0]), modes.size());
    for (std::size_t j = 0; j < modes.size(); ++j)
        expect_mode(modes[j], r.modes[j]);

    tessel_modes_summary s;
    tessel_modes_about(c, &s, sizeof s);
    EXPECT_EQ(s.modes, r.modes.size());
    EXPECT_EQ(s.first_sample, r.firstSample);
    EXPECT_EQ(s.decimation, r.decimation);
    const double is[] = {s.reference_time, s.noise, s.reduced_chi_square, s.lowest, s.highest};
    const double expected[] = {r.referenceTime, r.noise, r.reducedChiSquare, r.lowest, r.highest};
    EXPECT_EQ(std::memcmp(is, expected, sizeof is), 0);

    ASSERT_EQ(s.remarks, r.remarks.size());
    for (std::size_t j = 0; j < s.remarks; ++j) {
        const char* name = nullptr;
        double value = 0;
        EXPECT_EQ(tessel_modes_remark(c, j, &name, &value), r.remarks[j].text);
        EXPECT_STREQ(name, tessel::modes::name(r.remarks[j].code));
        EXPECT_EQ(value, r.remarks[j].value);
    }
    EXPECT_EQ(tessel_modes_remark(c, s.remarks, nullptr, nullptr), nullptr);
}

void expect_fortran(const std::vector<Complex>& y, int first, const tessel::modes::Result& r)
{
    std::vector<double> re, im;
    for (const Complex& v : y) {
        re.push_back(v.real());
        im.push_back(v.imag());
    }
    std::vector<tessel_mode> modes(r.modes.size());
    double beside[9];
    int letters[2];
    ASSERT_EQ(fortran_find(re.data(), im.data(), static_cast<int>(y.size()), first, 0, modes.data(),
                           static_cast<int>(modes.size()), beside, letters),
              TESSEL_MODES_OK);
    for (std::size_t j = 0; j < modes.size(); ++j)
        expect_mode(modes[j], r.modes[j]);
    const double expected[] = {static_cast<double>(r.modes.size()),
                               r.referenceTime,
                               static_cast<double>(r.firstSample) + 1,
                               static_cast<double>(r.decimation),
                               r.noise,
                               r.reducedChiSquare,
                               r.lowest,
                               r.highest,
                               r.has(tessel::modes::RemarkCode::recordTooShort) ? 0.0 : 1.0};
    EXPECT_EQ(std::memcmp(beside, expected, sizeof beside), 0);
    std::size_t text = 0;
    for (const tessel::modes::Remark& remark : r.remarks)
        text += remark.text.size();
    EXPECT_EQ(static_cast<std::size_t>(letters[0]), text);
    EXPECT_EQ(letters[1], 0);
}

TEST(ModesInC, BitsOfARealRecord)
{
    const std::vector<Complex> y = record(2000, false);
    const tessel::modes::Result r = tessel::modes::analyse(real(y), 2, 0.5);
    const Outcome outcome = analyse(real(y));
    ASSERT_EQ(outcome.status, TESSEL_MODES_OK);
    EXPECT_EQ(outcome.message, "");
    expect_result(outcome.result.get(), r);
    expect_fortran(y, 0, r);
}

TEST(ModesInC, BitsOfAComplexRecord)
{
    const std::vector<Complex> y = record(2000, true);
    const tessel::modes::Result r = tessel::modes::analyse(y, 2, 0.5);
    tessel_modes_result* result = nullptr;
    ASSERT_EQ(tessel_modes_analyse_complex(y.data(), y.size(), 2, 0.5, nullptr, &result, nullptr, 0), TESSEL_MODES_OK);
    const Owner owner(result, tessel_modes_free);
    expect_result(result, r);
    expect_fortran(y, 0, r);
}

/// Three records with the lines of record(), of other amplitudes, the last one shorter, through all interfaces.
template <typename Sample>
void expect_joint(const std::vector<std::vector<Sample>>& set)
{
    constexpr std::size_t kRecords = 3;
    std::vector<tessel::modes::Record> records;
    std::vector<const Sample*> samples;
    std::vector<std::size_t> counts;
    std::vector<double> starts, re, im;
    for (const std::vector<Sample>& y : set) {
        starts.push_back(2.0 * static_cast<double>(starts.size() + 1));
        samples.push_back(y.data());
        counts.push_back(y.size());
        records.push_back({y, starts.back()});
        for (std::size_t k = 0; k < set[0].size(); ++k) {
            re.push_back(k < y.size() ? std::real(y[k]) : 0);
            im.push_back(k < y.size() ? std::imag(y[k]) : 0);
        }
    }
    const tessel::modes::JointResult joint = tessel::modes::analyseJointly(records, 0.5);
    ASSERT_EQ(joint.modes.size(), 2U);
    std::vector<tessel_modes_result*> results(kRecords);
    char message[100] = "unset";
    tessel_modes_status status;
    if constexpr (std::is_same_v<Sample, double>)
        status = tessel_modes_analyse_jointly(samples.data(), counts.data(), starts.data(), kRecords, 0.5, nullptr,
                                              results.data(), message, sizeof message);
    else
        status = tessel_modes_analyse_jointly_complex(samples.data(), counts.data(), starts.data(), kRecords, 0.5,
                                                      nullptr, results.data(), message, sizeof message);
    ASSERT_EQ(status, TESSEL_MODES_OK) << message;
    EXPECT_STREQ(message, "");
    std::vector<tessel_mode> modes(2 * kRecords);
    std::vector<double> beside(3 * kRecords);
    int letters = 0;
    ASSERT_EQ(fortran_find_jointly(re.data(), im.data(), static_cast<int>(set[0].size()), kRecords,
                                   static_cast<int>(set[2].size()), modes.data(), 2, beside.data(), &letters),
              TESSEL_MODES_OK);
    EXPECT_EQ(letters, 0);
    for (std::size_t p = 0; p < kRecords; ++p) {
        tessel::modes::Result part;
        for (const tessel::modes::JointMode& m : joint.modes)
            part.modes.push_back({m.frequency, m.decay, m.quality, m.residues[p].amplitude, m.residues[p].phase,
                                  m.frequencyError, m.decayError, m.qualityError, m.residues[p].amplitudeError,
                                  m.residues[p].phaseError, m.significance, m.kind});
        part.referenceTime = joint.records[p].referenceTime;
        part.firstSample = joint.records[p].firstSample;
        part.decimation = joint.decimation;
        part.noise = joint.records[p].noise;
        part.reducedChiSquare = joint.records[p].reducedChiSquare;
        part.lowest = joint.lowest;
        part.highest = joint.highest;
        part.remarks = joint.remarks;
        const Owner owner(results[p], tessel_modes_free);
        expect_result(owner.get(), part);
        for (std::size_t j = 0; j < 2; ++j)
            expect_mode(modes[2 * p + j], part.modes[j]);
        EXPECT_EQ(beside[3 * p], 2);
        EXPECT_EQ(beside[3 * p + 1], part.referenceTime);
        EXPECT_EQ(beside[3 * p + 2], part.noise);
    }
}

TEST(ModesInC, BitsOfSeveralRecords)
{
    std::vector<std::vector<Complex>> set{record(2000, true), record(2000, true, 2), record(1200, true, 3)};
    for (Complex& v : set[1])
        v *= Complex(0, 30);
    expect_joint(set);
    expect_joint(std::vector{real(set[0]), real(set[1]), real(set[2])});
}

// A constant record hears of itself alone; on failure no record has a result.
TEST(ModesInC, SeveralRecordsHaveRemarksOfTheirOwn)
{
    const std::vector<double> y = real(record(2000, false)), still(50, 3.0);
    const double* samples[] = {y.data(), still.data(), y.data()};
    std::size_t counts[] = {y.size(), still.size(), y.size()};
    tessel_modes_result* results[3];
    ASSERT_EQ(tessel_modes_analyse_jointly(samples, counts, nullptr, 3, 1, nullptr, results, nullptr, 0),
              TESSEL_MODES_OK);
    for (std::size_t p = 0; p < 3; ++p) {
        const Owner owner(results[p], tessel_modes_free);
        tessel_mode modes[2];
        EXPECT_EQ(tessel_modes_list(owner.get(), 0, modes, 2, sizeof modes[0]), 2U);
        EXPECT_EQ(modes[0].amplitude > 0, p != 1);
        const char* name = "";
        tessel_modes_remark(owner.get(), 0, &name, nullptr);
        EXPECT_EQ(std::string(name) == "constantRecord", p == 1);
    }
    counts[2] = 5;
    char message[64];
    EXPECT_EQ(tessel_modes_analyse_jointly(samples, counts, nullptr, 3, 1, nullptr, results, message, sizeof message),
              TESSEL_MODES_TOO_FEW_SAMPLES);
    EXPECT_EQ(std::string(message).rfind("record 2: ", 0), 0U) << message;
    EXPECT_TRUE(results[0] == nullptr && results[2] == nullptr);
    samples[1] = nullptr;
    EXPECT_EQ(tessel_modes_analyse_jointly(samples, counts, nullptr, 3, 1, nullptr, results, nullptr, 0),
              TESSEL_MODES_ARGUMENT);
    EXPECT_EQ(tessel_modes_analyse_jointly(nullptr, nullptr, nullptr, 0, 1, nullptr, nullptr, nullptr, 0),
              TESSEL_MODES_TOO_FEW_SAMPLES);
}

TEST(ModesInC, OptionsArePassedOn)
{
    const std::vector<Complex> y = record(2000, false);
    tessel::modes::Options expected;
    tessel_modes_options options = defaults();
    expected.first = 100;
    options.first = 100;
    expected.lowest = options.lowest = 0.01;
    expected.highest = options.highest = 0.1;
    expected.noise = options.noise = 1e-5;
    expected.mostModes = options.most_modes = 20;
    const tessel::modes::Result r = tessel::modes::analyse(real(y), 2, 0.5, expected);
    const Outcome outcome = analyse(real(y), 2, 0.5, &options);
    ASSERT_EQ(outcome.status, TESSEL_MODES_OK) << outcome.message;
    expect_result(outcome.result.get(), r);
    expect_fortran(y, 101, r);
}

TEST(ModesInC, EachErrorHasItsStatus)
{
    const std::vector<double> y = real(record(200, false));
    std::vector<double> broken = y;
    broken[42] = NAN;
    const auto fails = [](const Outcome& outcome, tessel_modes_status status, const std::string& text) {
        EXPECT_EQ(outcome.status, status) << text;
        EXPECT_EQ(outcome.result, nullptr) << text;
        EXPECT_NE(outcome.message.find(text), std::string::npos) << outcome.message;
    };
    fails(analyse({1, 2, 3}), TESSEL_MODES_TOO_FEW_SAMPLES, "at least 8");
    fails(analyse({}), TESSEL_MODES_TOO_FEW_SAMPLES, "there are 0");
    fails(analyse(broken), TESSEL_MODES_NOT_FINITE, "42");
    fails(analyse(y, 0, -1), TESSEL_MODES_SPACING, "spacing");
    fails(analyse(y, NAN, 1), TESSEL_MODES_START, "start");
    for (const auto& [member, value] : {std::pair(&tessel_modes_options::noise, -1.0),
                                        {&tessel_modes_options::noise, NAN},
                                        {&tessel_modes_options::lowest, kInfinity},
                                        {&tessel_modes_options::highest, NAN}}) {
        tessel_modes_options options = defaults();
        options.*member = value;
        fails(analyse(y, 0, 1, &options), TESSEL_MODES_OPTION, "");
    }
    tessel_modes_options options = defaults();
    options.first = -7;
    fails(analyse(y, 0, 1, &options), TESSEL_MODES_OPTION, "-7");
    options.size = 0;
    fails(analyse(y, 0, 1, &options), TESSEL_MODES_ARGUMENT, "tessel_modes_options_init");

    tessel_modes_result* result = nullptr;
    EXPECT_EQ(tessel_modes_analyse(nullptr, 9, 0, 1, nullptr, &result, nullptr, 0), TESSEL_MODES_ARGUMENT);
    EXPECT_EQ(tessel_modes_analyse(y.data(), y.size(), 0, 1, nullptr, nullptr, nullptr, 0), TESSEL_MODES_ARGUMENT);
    EXPECT_EQ(tessel_modes_analyse(y.data(), PTRDIFF_MAX, 0, 1, nullptr, &result, nullptr, 0), TESSEL_MODES_NO_MEMORY);
    tessel_modes_free(nullptr);

    for (std::size_t room = 0; room < 6; ++room) {
        char message[8] = "#######";
        tessel_modes_analyse(broken.data(), broken.size(), 0, 1, nullptr, &result, message, room);
        EXPECT_EQ(std::string(message, sizeof message),
                  room == 0
                      ? std::string("#######\0", 8)
                      : std::string("sample 42").substr(0, room - 1) + '\0' + std::string("#######\0", 8).substr(room));
    }
    double beside[9];
    int letters[2];
    const std::vector<double> zeros(200);
    EXPECT_EQ(fortran_find(broken.data(), zeros.data(), 200, 0, 0, nullptr, 0, beside, letters),
              TESSEL_MODES_NOT_FINITE);
    EXPECT_EQ(static_cast<std::size_t>(letters[1]), analyse(broken).message.size());
}

TEST(ModesInC, ProgressStopsAndNothingIsThrownAcross)
{
    const std::vector<double> y = real(record(2000, false));
    const std::vector<double> zeros(y.size());
    tessel_modes_options options = defaults();
    int calls = 0;
    options.progress_data = &calls;
    options.progress = [](const char*, size_t, double, void* data) -> int { return ++*static_cast<int*>(data) == 3; };
    EXPECT_EQ(analyse(y, 0, 1, &options).status, TESSEL_MODES_STOPPED);
    EXPECT_EQ(calls, 3);
    double beside[9];
    int letters[2];
    EXPECT_EQ(fortran_find(y.data(), zeros.data(), static_cast<int>(y.size()), 0, 3, nullptr, 0, beside, letters),
              TESSEL_MODES_STOPPED);

    options.progress = [](const char*, size_t, double, void*) -> int { throw std::bad_alloc(); };
    EXPECT_EQ(analyse(y, 0, 1, &options).status, TESSEL_MODES_NO_MEMORY);
    options.progress = [](const char*, size_t, double, void*) -> int { throw std::runtime_error("of the host's own"); };
    EXPECT_EQ(analyse(y, 0, 1, &options).message, "of the host's own");
    options.progress = [](const char*, size_t, double, void*) -> int { throw 1; };
    EXPECT_EQ(analyse(y, 0, 1, &options).status, TESSEL_MODES_FAILED);
}

// A line that hardly decays within the record, and the same in a longer one.
TEST(ModesInC, LongEnough)
{
    const auto line = [](std::size_t n) {
        std::vector<double> y(n);
        unsigned state = 1;
        for (std::size_t k = 0; k < n; ++k) {
            const auto t = static_cast<double>(k);
            state = state * 1664525U + 1013904223U;
            y[k] = std::exp(-1e-4 * t) * std::cos(0.2 * t) + 1e-1 * (state / 4294967296.0 - 0.5);
        }
        return y;
    };
    double until = 0;
    const Outcome early = analyse(line(150), 1000, 1);
    ASSERT_EQ(early.status, TESSEL_MODES_OK);
    EXPECT_EQ(tessel_modes_long_enough(early.result.get(), &until), 0);
    EXPECT_GT(until, 1150);
    EXPECT_LT(until, 2000);
    const Outcome late = analyse(line(2000), 0, 1);
    EXPECT_EQ(tessel_modes_long_enough(late.result.get(), &until), 1);
    EXPECT_EQ(until, -kInfinity);
    const Outcome silent = analyse(std::vector<double>(100), 0, 1);
    EXPECT_EQ(tessel_modes_long_enough(silent.result.get(), &until), 0);
    EXPECT_EQ(until, kInfinity);
    EXPECT_EQ(tessel_modes_long_enough(nullptr, nullptr), 0);
}

// A host that was compiled with a structure that ends earlier or later than the library's.
TEST(ModesInC, StructuresMayGrow)
{
    const Outcome outcome = analyse(real(record(2000, false)));
    tessel_mode whole[2];
    ASSERT_EQ(tessel_modes_list(outcome.result.get(), 0, whole, 2, sizeof whole[0]), 2U);
    double shorter[3] = {0, 0, -1};
    tessel_modes_list(outcome.result.get(), 0, reinterpret_cast<tessel_mode*>(shorter), 2, sizeof shorter[0]);
    EXPECT_EQ(shorter[0], whole[0].frequency);
    EXPECT_EQ(shorter[1], whole[1].frequency);
    EXPECT_EQ(shorter[2], -1);
    struct Longer
    {
        tessel_mode mode;
        double more;
    } longer{{}, 7};
    EXPECT_EQ(tessel_modes_list(outcome.result.get(), 1, &longer.mode, 1, sizeof longer), 2U);
    EXPECT_EQ(longer.mode.frequency, whole[1].frequency);
    EXPECT_EQ(longer.more, 0);
}

} // namespace
