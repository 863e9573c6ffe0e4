// Fields built of known modes: poles and profiles against the whole field's bound, what may not move a bit, what the
// chosen points miss, faults.
#include "fields/kernels.h"
#include "tests/fields/memory_field.h"

#include <Eigen/Dense>
#include <gtest/gtest.h>

namespace {

using namespace tessel::fields;
using Complex = std::complex<double>;

constexpr double kTwoPi = 6.283185307179586;

/// A standing wave with a phase that runs across the field.
std::vector<Complex> wave(std::size_t nx, std::size_t ny, int a, int b, Complex c)
{
    std::vector<Complex> out;
    for (std::size_t x = 0; x < nx; ++x)
        for (std::size_t y = 0; y < ny; ++y) {
            const double u = (static_cast<double>(x) + 0.5) / static_cast<double>(nx);
            const double v = (static_cast<double>(y) + 0.5) / static_cast<double>(ny);
            out.push_back(c * std::sin(kTwoPi / 2 * a * u) * std::sin(kTwoPi / 2 * b * v) * std::polar(1.0, 0.4 * u));
        }
    return out;
}

/// Five modes: two of them 0.3 / steps apart, one weak.
std::vector<Made> five(std::size_t nx, std::size_t ny, std::size_t steps)
{
    const auto n = static_cast<double>(steps);
    return {{0.011, 1.2 / n, wave(nx, ny, 1, 1, {1, 0.2})},
            {0.011 + 0.3 / n, 1.9 / n, wave(nx, ny, 2, 1, {0.5, -0.7})},
            {0.019, 0.6 / n, wave(nx, ny, 1, 2, {-0.3, 0.4})},
            {0.027, 3.0 / n, wave(nx, ny, 2, 2, {0.1, 0.9})},
            {0.0305, 2.0 / n, wave(nx, ny, 3, 2, {4e-3, 0})}};
}

/// Standard errors that no method can beat: of frequency and decay of each mode from the whole field, and the traces of
/// the covariances of profiles at known poles.
struct Bound
{
    std::vector<double> frequency, decay, profile;
};

Bound bound_of(const std::vector<Made>& modes, std::size_t steps, bool complex, double noise)
{
    const auto count = static_cast<Eigen::Index>(modes.size()), n = static_cast<Eigen::Index>(steps);
    const Eigen::Index parts = complex ? 2 : 1;
    Eigen::MatrixXd v(n * parts, 4 * count);
    for (Eigen::Index j = 0; j < count; ++j)
        for (Eigen::Index k = 0; k < n; ++k) {
            const Made& mode = modes[static_cast<std::size_t>(j)];
            const auto t = static_cast<double>(k);
            const Complex e = std::polar(std::exp(-mode.decay * t), kTwoPi * mode.frequency * t);
            const Complex columns[] = {e, Complex(0, 1) * e, t * e, Complex(0, t) * e};
            for (Eigen::Index c = 0; c < 4; ++c) {
                v(k * parts, c / 2 * 2 * count + 2 * j + c % 2) = columns[c].real();
                if (complex)
                    v(k * parts + 1, c / 2 * 2 * count + 2 * j + c % 2) = columns[c].imag();
            }
        }
    const Eigen::MatrixXd r = v.householderQr().matrixQR().topRows(4 * count).triangularView<Eigen::Upper>();
    const Eigen::MatrixXd r22 = r.bottomRightCorner(2 * count, 2 * count);
    const Eigen::MatrixXd linear = r.topLeftCorner(2 * count, 2 * count).inverse();
    Eigen::MatrixXd h = Eigen::MatrixXd::Zero(2 * count, 2 * count);
    for (std::size_t p = 0; p < modes.front().profile.size(); ++p) {
        Eigen::MatrixXd d = Eigen::MatrixXd::Zero(2 * count, 2 * count);
        for (Eigen::Index j = 0; j < count; ++j) {
            const Complex c = modes[static_cast<std::size_t>(j)].profile[p];
            d.block<2, 2>(2 * j, 2 * j) << -c.real(), -c.imag(), -c.imag(), c.real();
        }
        const Eigen::MatrixXd j = r22 * d;
        h += j.transpose() * j / (noise * noise);
    }
    const Eigen::MatrixXd covariance = h.inverse();
    Bound bound;
    for (Eigen::Index j = 0; j < count; ++j) {
        bound.decay.push_back(std::sqrt(covariance(2 * j, 2 * j)));
        bound.frequency.push_back(std::sqrt(covariance(2 * j + 1, 2 * j + 1)) / kTwoPi);
        bound.profile.push_back(noise * std::sqrt(linear.middleRows(2 * j, 2).squaredNorm()));
    }
    return bound;
}

/// Mean squares of what should be 1.
struct Quality
{
    double poles = 0, bars = 0, profiles = 0, amplitudes = 0, phases = 0;
};

void add(double& mean, double value, double count)
{
    mean += value * value / count;
}

Quality quality_of(bool complex, double noise, int seeds)
{
    constexpr std::size_t nx = 50, ny = 43, steps = 1200;
    const std::vector<Made> modes = five(nx, ny, steps);
    const Bound bound = bound_of(modes, steps, complex, noise);
    Quality q;
    double strong = 0;
    for (int seed = 0; seed < seeds; ++seed) {
        MemorySource source({nx, ny}, steps, complex);
        make_field(source, modes, noise, 7 + static_cast<unsigned>(seed));
        const Found found = analyse_field(source);
        EXPECT_EQ(found.outcome.modes.size(), modes.size());
        if (found.outcome.modes.size() != modes.size())
            return q;
        EXPECT_NEAR(found.outcome.noise, noise, 0.02 * noise);
        EXPECT_NEAR(found.outcome.reducedChiSquare, 1, 0.1);
        const auto all = static_cast<double>(modes.size()) * seeds;
        for (std::size_t j = 0; j < modes.size(); ++j) {
            const FieldMode& mode = found.outcome.modes[j];
            const double df = mode.frequency - modes[j].frequency, dg = mode.decay - modes[j].decay;
            add(q.poles, df / bound.frequency[j], 2 * all);
            add(q.poles, dg / bound.decay[j], 2 * all);
            add(q.bars, df / mode.frequencyError, 2 * all);
            add(q.bars, dg / mode.decayError, 2 * all);
            EXPECT_GT(mode.significance, 1);
            double peak = 0;
            const auto points = static_cast<double>(nx * ny);
            for (std::size_t p = 0; p < nx * ny; ++p) {
                const std::size_t at = j * nx * ny + p;
                const Complex c = modes[j].profile[p], got = std::polar(found.amplitude[at], found.phase[at]);
                add(q.profiles, std::abs(got - c) / bound.profile[j], all * points);
                if (std::abs(c) >
                    10 * found.amplitudeError[at]) { // errors of amplitude and phase are those of c turned
                    const Complex turned = (got - c) * std::conj(got) / std::abs(got);
                    add(q.amplitudes, turned.real() / found.amplitudeError[at], 1);
                    add(q.phases, turned.imag() / (std::abs(got) * found.phaseError[at]), 1);
                    ++strong;
                }
                peak = std::max(peak, found.amplitude[at]);
            }
            EXPECT_EQ(mode.peak, peak);
            EXPECT_EQ(mode.peak, found.amplitude[j * nx * ny + mode.peakPoint]);
        }
    }
    q.amplitudes /= strong;
    q.phases /= strong;
    return q;
}

TEST(Fields, ReachTheBoundOfTheWholeField)
{
    for (const double noise : {1e-4, 1e-2}) {
        const Quality q = quality_of(false, noise, 4);
        EXPECT_LT(q.poles, 1.25) << noise;
        EXPECT_GT(q.bars, 0.75) << noise;
        EXPECT_LT(q.bars, 1.25) << noise;
        EXPECT_NEAR(q.profiles, 1, 0.03) << noise;
        EXPECT_NEAR(q.amplitudes, 1, 0.03) << noise;
        EXPECT_NEAR(q.phases, 1, 0.03) << noise;
    }
}

TEST(Fields, ComplexFieldsToo)
{
    const Quality q = quality_of(true, 1e-3, 3);
    EXPECT_LT(q.poles, 1.3);
    EXPECT_GT(q.bars, 0.7);
    EXPECT_LT(q.bars, 1.3);
    EXPECT_NEAR(q.profiles, 1, 0.03);
    EXPECT_NEAR(q.amplitudes, 1, 0.03);
}

TEST(Fields, WithoutNoiseRoundingIsTheNoise)
{
    constexpr std::size_t nx = 30, ny = 40, steps = 1500;
    const std::vector<Made> modes = five(nx, ny, steps);
    for (const bool single : {true, false}) {
        MemorySource source({nx, ny}, steps);
        make_field(source, modes, 0, 1);
        if (single)
            source.make_single();
        const Found found = analyse_field(source);
        ASSERT_EQ(found.outcome.modes.size(), modes.size()) << single;
        for (std::size_t j = 0; j < modes.size(); ++j) {
            const FieldMode& mode = found.outcome.modes[j];
            EXPECT_LT(std::abs(mode.frequency - modes[j].frequency), 5 * mode.frequencyError) << single << j;
            EXPECT_LT(std::abs(mode.decay - modes[j].decay), 5 * mode.decayError) << single << j;
            EXPECT_LT(mode.frequencyError, (single ? 1e-9 : 1e-15) * mode.frequency) << single << j;
            double sum = 0;
            for (std::size_t p = 0; p < nx * ny; ++p) {
                const std::size_t at = j * nx * ny + p;
                add(sum, (found.amplitude[at] - std::abs(modes[j].profile[p])) / found.amplitudeError[at],
                    static_cast<double>(nx * ny));
            }
            EXPECT_LT(sum, 2) << single << j; // rounding follows each record, the weights follow all
            EXPECT_GT(sum, 0.02) << single << j;
        }
    }
}

/// Every number of a result, bit for bit.
std::vector<double> numbers(const Found& found)
{
    std::vector<double> out = {found.outcome.noise, found.outcome.reducedChiSquare};
    for (const FieldMode& mode : found.outcome.modes)
        out.insert(out.end(), {mode.frequency, mode.decay, mode.quality, mode.frequencyError, mode.decayError,
                               mode.qualityError, mode.significance, mode.peak, static_cast<double>(mode.peakPoint)});
    for (const std::vector<double>* each : {&found.amplitude, &found.phase, &found.amplitudeError, &found.phaseError})
        out.insert(out.end(), each->begin(), each->end());
    return out;
}

TEST(Fields, NoBitHangsOnHowTheyAreRead)
{
    constexpr std::size_t nx = 70, ny = 61, steps = 900; // five blocks
    for (const bool complex : {false, true}) {
        MemorySource source({nx, ny}, steps, complex);
        make_field(source, five(nx, ny, steps), 1e-4, 3);
        source.make_single();
        const std::vector<double> expected = numbers(analyse_field(source));
        ASSERT_GT(expected.size(), nx * ny * 20);
        Options threads, little;
        threads.threads = 3;
        little.memory = 3 << 20;
        EXPECT_EQ(numbers(analyse_field(source, threads)), expected);
        EXPECT_EQ(numbers(analyse_field(source, little)), expected);
        for (const int size : {2, 3, 8}) // of eight ranks some have nothing
            EXPECT_EQ(numbers(analyse_on(size, source, size == 3 ? threads : Options())), expected) << size;
        source.form.chunkSteps = 7;
        EXPECT_EQ(numbers(analyse_field(source, little)), expected);
        source.form.timeFirst = false;
        source.form.chunkPoints = 300;
        Options some = threads; // one or two blocks at once, and what their chunks hold of the next
        some.memory = 48 << 20;
        for (const Options& options : {Options(), little, some})
            EXPECT_EQ(numbers(analyse_field(source, options)), expected);
        source.form.chunkSteps = 1; // several threads read
        EXPECT_EQ(numbers(analyse_field(source, some)), expected);
        for (const tessel::VectorWidth width : {tessel::VectorWidth::baseline, tessel::VectorWidth::avx2}) {
            use_vectors(width);
            EXPECT_EQ(numbers(analyse_field(source)), expected);
        }
        use_vectors(tessel::widest_vectors());
    }
}

TEST(Fields, AnOffsetAndAPointAtRest)
{
    constexpr std::size_t nx = 40, ny = 30, steps = 1000;
    std::vector<Made> modes = five(nx, ny, steps);
    modes.resize(3);
    for (Made& mode : modes)
        mode.profile[77] = 0;
    MemorySource source({nx, ny}, steps);
    make_field(source, modes, 1e-4, 5);
    for (std::size_t k = 0; k < steps; ++k)
        for (std::size_t p = 0; p < nx * ny; ++p)
            source.re[k * nx * ny + p] = p == 77 ? 0 : source.re[k * nx * ny + p] + (p == 78 ? 5 : 0.5);
    const Found found = analyse_field(source);
    ASSERT_EQ(found.outcome.modes.size(), 3U);
    for (std::size_t j = 0; j < 3; ++j) {
        EXPECT_NEAR(found.outcome.modes[j].frequency, modes[j].frequency, 5 * found.outcome.modes[j].frequencyError);
        EXPECT_EQ(found.amplitude[j * nx * ny + 77], 0);
        EXPECT_NEAR(found.amplitude[j * nx * ny + 78], std::abs(modes[j].profile[78]),
                    5 * found.amplitudeError[j * nx * ny + 78]);
    }
}

TEST(Fields, AModeThatTheChosenPointsMiss)
{
    constexpr std::size_t nx = 80, ny = 60, steps = 1000;
    std::vector<Made> modes = five(nx, ny, steps);
    modes.resize(3);
    modes.push_back({0.0233, 1e-3, std::vector<Complex>(nx * ny, 0)});
    const std::size_t places[] = {2000, 2001, 2060, 2061};
    for (const std::size_t p : places)
        modes[3].profile[p] = {0.02, 0.01};
    MemorySource source({nx, ny}, steps);
    make_field(source, modes, 1e-3, 6);
    const Found found = analyse_field(source);
    for (const std::size_t p : places)
        ASSERT_EQ(std::count(found.outcome.samples.begin(), found.outcome.samples.begin() + 32, p), 0);
    ASSERT_EQ(found.outcome.modes.size(), 4U);
    const FieldMode& local = found.outcome.modes[3];
    EXPECT_NEAR(local.frequency, 0.0233, 5 * local.frequencyError);
    EXPECT_LT(local.frequencyError, 1e-5);
    EXPECT_EQ(std::count(std::begin(places), std::end(places), local.peakPoint), 1);
    for (const std::size_t p : places)
        EXPECT_NEAR(found.amplitude[3 * nx * ny + p], std::hypot(0.02, 0.01),
                    5 * found.amplitudeError[3 * nx * ny + p]);
}

TEST(Fields, AnOverdampedModeInAFieldOfTinyValues)
{
    constexpr std::size_t nx = 33, ny = 40, steps = 1000;
    constexpr double unit = 0x1p-600; // squares of the samples are zero
    for (const bool complex : {false, true}) {
        std::vector<Made> modes = five(nx, ny, steps);
        modes.erase(modes.begin() + 1, modes.end());
        modes.push_back({0, 12.0 / steps, wave(nx, ny, 2, 1, {0.7, 0})});
        if (!complex)
            for (Complex& c : modes[1].profile)
                c = c.real();
        MemorySource source({nx, ny}, steps, complex);
        make_field(source, modes, 1e-4, 5);
        for (std::vector<double>* each : {&source.re, &source.im})
            for (double& v : *each)
                v *= unit;
        const Found found = analyse_field(source);
        ASSERT_EQ(found.outcome.modes.size(), 2U);
        EXPECT_NEAR(found.outcome.noise / unit, 1e-4, 2e-6);
        const FieldMode& slow = found.outcome.modes[0];
        if (!complex) {
            EXPECT_EQ(slow.kind, tessel::modes::Kind::overdamped);
        }
        EXPECT_LE(std::abs(slow.frequency), 5 * slow.frequencyError);
        EXPECT_NEAR(slow.decay, modes[1].decay, 5 * slow.decayError);
        double sum = 0;
        for (std::size_t p = 0; p < nx * ny; ++p) {
            const Complex c = modes[1].profile[p];
            const double error = found.amplitude[p] / unit * std::cos(found.phase[p] - std::arg(c)) - std::abs(c);
            add(sum, error / (found.amplitudeError[p] / unit), static_cast<double>(nx * ny));
        }
        EXPECT_NEAR(sum, 1, 0.15) << complex;
    }
}

TEST(Fields, AGrowingModeIsMeasuredToo)
{
    constexpr std::size_t nx = 33, ny = 40, steps = 1000;
    std::vector<Made> modes = five(nx, ny, steps);
    modes.resize(3);
    modes[2].decay = -8.0 / steps;
    for (Complex& c : modes[2].profile)
        c *= 1e-2;
    MemorySource source({nx, ny}, steps);
    make_field(source, modes, 1e-4, 5);
    const Found found = analyse_field(source);
    ASSERT_EQ(found.outcome.modes.size(), 3U);
    const FieldMode& growing = found.outcome.modes[2];
    EXPECT_EQ(growing.kind, tessel::modes::Kind::growing);
    EXPECT_NEAR(growing.decay, modes[2].decay, 5 * growing.decayError);
    double sum = 0;
    for (std::size_t p = 0; p < nx * ny; ++p) {
        const std::size_t at = 2 * nx * ny + p;
        const Complex got = std::polar(found.amplitude[at], found.phase[at]);
        add(sum, (got - modes[2].profile[p]).real() / found.amplitudeError[at], static_cast<double>(nx * ny));
    }
    EXPECT_NEAR(sum, 1, 0.15);
}

TEST(Fields, AStoppedRunGoesOn)
{
    constexpr std::size_t nx = 70, ny = 61, steps = 900;
    MemorySource source({nx, ny}, steps);
    make_field(source, five(nx, ny, steps), 1e-4, 3);
    source.form.timeFirst = false;
    const std::vector<double> expected = numbers(analyse_field(source));
    MemoryStore store;
    tessel::fields::Team alone;
    Options options;
    options.memory = 3 << 20;
    options.progress = [&](const Progress&) { return store.puts < 2; };
    EXPECT_THROW(analyse_field(source, options, store, alone), tessel::modes::Stopped);
    const std::size_t before = store.puts;
    EXPECT_GE(before, 2U);
    options.progress = nullptr;
    EXPECT_EQ(numbers(analyse_field(source, options, store, alone)), expected);
    EXPECT_EQ(store.puts, 5U); // none of them again
}

TEST(Fields, FaultsAndFieldsThatDoNotRing)
{
    constexpr std::size_t nx = 70, ny = 61, steps = 400;
    MemorySource source({nx, ny}, steps);
    make_field(source, five(nx, ny, steps), 1e-4, 3);
    MemorySource broken({nx, ny}, steps);
    broken.re = source.re;
    broken.re[217 * nx * ny + 33 * ny + 5] = std::nan("");
    const auto message = [&](int ranks) -> std::string {
        try {
            ranks == 1 ? analyse_field(broken) : analyse_on(ranks, broken);
        } catch (const Error& e) {
            return e.what();
        }
        return "";
    };
    EXPECT_EQ(message(1), "sample at step 217 of point (33, 5) is not finite");

    MemorySource still({nx, ny}, steps);
    still.re.assign(nx * ny * steps, 3.5);
    Found found = analyse_field(still);
    EXPECT_TRUE(found.outcome.modes.empty());
    EXPECT_EQ(found.outcome.remarks.front().code, tessel::modes::RemarkCode::constantRecord);

    // only a corner of the field moves
    for (std::size_t k = 0; k < steps; ++k)
        for (std::size_t p = 0; p < 5; ++p)
            still.re[k * nx * ny + p] = source.re[k * nx * ny + 2000 + p];
    found = analyse_field(still);
    EXPECT_EQ(found.outcome.samples.size(), 5U);
    EXPECT_GE(found.outcome.modes.size(), 3U);

    MemorySource noise({nx, ny}, steps);
    make_field(noise, {}, 1.0, 9);
    found = analyse_field(noise);
    EXPECT_TRUE(found.outcome.modes.empty());
    EXPECT_FALSE(found.outcome.remarks.empty());

    MemorySource brief({nx}, 7);
    brief.re.assign(7 * nx, 0);
    EXPECT_THROW(analyse_field(brief), Error);
}

} // namespace
