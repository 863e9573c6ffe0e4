#include "fields/start.h"
#include "common/elementary.h"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace tessel::fields {

namespace {

constexpr const char* kHeader = "tessel-fields poles 1";
constexpr Extended kMostTurn = 0.08L * kTwoPi; // of a mode within a sum: standard errors grow by 1 %
constexpr std::size_t kRowsOfColumn = 8;
constexpr double kVaries = 2.5;      // largest variance of the noise over its least, where it is not constant
constexpr double kLeastNoise = 1e-6; // of the largest variance
constexpr std::size_t kSegments = 32;
constexpr std::size_t kSumsOfSegment = 8; // at least

std::string exact(Extended x)
{
    char text[64];
    std::snprintf(text, sizeof text, "%La", x);
    return text;
}

Extended exact_from(std::istream& in)
{
    std::string text;
    in >> text;
    char* end = nullptr;
    const Extended value = std::strtold(text.c_str(), &end);
    if (text.empty() || *end != '\0')
        in.setstate(std::ios::failbit);
    return value;
}

Start start_from(const Work& work, const modes::JointResult& result, const Samples& samples)
{
    Start start;
    const auto spacing = static_cast<Extended>(work.shape().spacing);
    for (const modes::JointMode& mode : result.modes) {
        Term& term = start.terms.emplace_back();
        term.decay = static_cast<Extended>(mode.decay) * spacing;
        term.cycles = static_cast<Extended>(mode.frequency) * spacing;
        term.real = mode.frequency == 0;
    }
    for (const modes::JointRecord& record : result.records)
        if (!record.constant)
            start.firstStep = std::max(start.firstStep, record.firstSample);
    start.reason = result.firstSampleReason;
    start.background = result.has(modes::RemarkCode::background);
    start.reducedChiSquare = result.reducedChiSquare;
    start.samples = samples.points;
    double peak = 0;
    for (const modes::Record& record : samples.records)
        if (const auto* real = std::get_if<std::vector<double>>(&record.samples))
            for (const double v : *real)
                peak = std::max(peak, std::fabs(v));
        else
            for (const std::complex<double>& v : std::get<std::vector<std::complex<double>>>(record.samples))
                peak = std::max({peak, std::fabs(v.real()), std::fabs(v.imag())});
    std::frexp(peak, &start.exponent);
    start.exponent = std::clamp(start.exponent, -1000, 1000);
    // What is said of one record is said of a point.
    for (const modes::Remark& remark : result.remarks) {
        modes::Remark own = remark;
        const std::string which = "record ";
        if (own.text.compare(0, which.size(), which) == 0) {
            std::size_t digits = 0;
            const auto number = static_cast<std::size_t>(std::stoull(own.text.substr(which.size()), &digits));
            if (number < samples.points.size())
                own.text = "point " + work.place(samples.points[number]) + own.text.substr(which.size() + digits);
            if (own.code == modes::RemarkCode::recordsDiffer && number < samples.points.size())
                own.value = static_cast<double>(samples.points[number]);
        }
        start.remarks.push_back(std::move(own));
    }
    return start;
}

/// The noise of the records over time: what the basis leaves of them, in segments.
void find_noise(const Work& work, const Samples& samples, Start& start)
{
    const Span basis = make_span(work.shape(), start, work.options.threads);
    const Grid& grid = basis.grid();
    const auto rows = static_cast<Index>(grid.rows()), count = static_cast<Index>(samples.records.size());
    Matrix x(rows, count);
    for (Index p = 0; p < count; ++p) {
        const auto& record = samples.records[static_cast<std::size_t>(p)].samples;
        for (std::size_t k = 0; k < grid.sums; ++k) {
            const std::size_t from = start.firstStep + k * grid.factor;
            std::complex<double> sum = 0;
            for (std::size_t at = from; at < from + grid.factor; ++at)
                if (const auto* real = std::get_if<std::vector<double>>(&record))
                    sum += (*real)[at];
                else
                    sum += std::get<std::vector<std::complex<double>>>(record)[at];
            x(static_cast<Index>(k * grid.parts()), p) = sum.real();
            if (grid.complex)
                x(static_cast<Index>(2 * k + 1), p) = sum.imag();
        }
    }
    for (int twice = 0; twice < 2; ++twice) {
        const Matrix inside = basis.matrix().transpose() * x;
        x -= basis.matrix() * inside;
    }
    const Vector freedom = Vector::Ones(rows) - basis.matrix().rowwise().squaredNorm();
    const Vector total = x.colwise().squaredNorm();
    const std::size_t segments = std::min(kSegments, grid.sums / kSumsOfSegment);
    double largest = 0, least = HUGE_VAL, mean = 0;
    std::vector<double> steps, variances;
    for (std::size_t s = 0; s < segments; ++s) {
        const std::size_t from = grid.sums * s / segments, end = grid.sums * (s + 1) / segments;
        const auto first = static_cast<Index>(from * grid.parts()),
                   some = static_cast<Index>((end - from) * grid.parts());
        double energy = 0; // each record over its own
        for (Index p = 0; p < count; ++p)
            if (total[p] > 0)
                energy += x.col(p).segment(first, some).squaredNorm() / total[p];
        const double own = freedom.segment(first, some).sum();
        if (!(own > 0.5 * static_cast<double>(some)))
            continue; // hardly any noise is seen beside the modes
        variances.push_back(energy / own);
        steps.push_back(static_cast<double>((from + end) * grid.factor) / 2);
        largest = std::max(largest, variances.back());
        least = std::min(least, variances.back());
    }
    if (variances.size() < 2 || !(largest > kVaries * least))
        return;
    for (double& v : variances) {
        v = std::max(v, kLeastNoise * largest);
        mean += v / static_cast<double>(variances.size());
    }
    for (const double v : variances)
        start.noiseLogs.push_back(logarithm(v / mean) / 2);
    start.noiseSteps = steps;
}

/// Weights of the sums.
std::vector<double> weights_of(const Grid& grid, const Start& start)
{
    std::vector<double> out;
    if (start.noiseSteps.size() < 2)
        return out;
    std::size_t at = 0;
    for (std::size_t k = 0; k < grid.sums; ++k) {
        const double step = (static_cast<double>(k) + 0.5) * static_cast<double>(grid.factor);
        while (at + 2 < start.noiseSteps.size() && step > start.noiseSteps[at + 1])
            ++at;
        const double from = start.noiseSteps[at], to = start.noiseSteps[at + 1];
        const double slope = (start.noiseLogs[at + 1] - start.noiseLogs[at]) / (to - from);
        out.push_back(exponential(-(start.noiseLogs[at] + slope * (step - from))));
    }
    return out;
}

} // namespace

Span make_span(const Shape& shape, const Start& start, unsigned threads)
{
    Grid grid;
    grid.complex = shape.complex;
    const std::size_t steps = shape.steps - start.firstStep;
    Extended fastest = 0;
    for (const Term& term : start.terms)
        fastest = std::max(fastest, std::sqrt(term.decay * term.decay + kTwoPi * kTwoPi * term.cycles * term.cycles));
    const std::size_t drift = start.background ? 2 : 0;
    const auto columns = static_cast<std::size_t>(Columns(grid, start.terms, drift).total);
    const std::size_t most = std::max<std::size_t>(1, steps * grid.parts() / (kRowsOfColumn * columns));
    const Extended slow = kMostTurn / fastest;
    grid.factor = slow < static_cast<Extended>(most) ? std::max<std::size_t>(1, static_cast<std::size_t>(slow)) : most;
    grid.sums = steps / grid.factor;
    if (grid.rows() < columns + 8)
        throw Error("the field has too few steps for its " + std::to_string(start.terms.size()) + " modes");
    return {grid, start.terms, drift, weights_of(grid, start), std::ldexp(1.0, -start.exponent), threads};
}

std::string to_text(const Start& start)
{
    std::ostringstream out;
    out << kHeader << '\n'
        << start.firstStep << ' ' << static_cast<int>(start.reason) << ' ' << start.exponent << ' ' << start.background
        << ' ' << start.rounds << ' ' << start.passes << ' ' << start.dropped << ' '
        << exact(static_cast<Extended>(start.reducedChiSquare)) << '\n'
        << start.terms.size() << '\n';
    for (const Term& term : start.terms)
        out << exact(term.decay) << ' ' << exact(term.cycles) << ' ' << term.real << '\n';
    out << start.noiseSteps.size() << '\n';
    for (std::size_t s = 0; s < start.noiseSteps.size(); ++s)
        out << exact(static_cast<Extended>(start.noiseSteps[s])) << ' '
            << exact(static_cast<Extended>(start.noiseLogs[s])) << '\n';
    out << start.samples.size() << '\n';
    for (const std::size_t point : start.samples)
        out << point << '\n';
    out << start.remarks.size() << '\n';
    for (const modes::Remark& remark : start.remarks)
        out << static_cast<int>(remark.code) << ' ' << exact(static_cast<Extended>(remark.value)) << ' ' << remark.text
            << '\n';
    out << "end\n";
    return out.str();
}

std::optional<Start> from_text(const std::string& text)
{
    std::istringstream in(text);
    std::string line;
    if (!std::getline(in, line) || line != kHeader)
        return std::nullopt;
    Start start;
    int code = 0;
    std::size_t count = 0;
    const auto next = [&] { return in && count-- > 0; };
    in >> start.firstStep >> code >> start.exponent >> start.background >> start.rounds >> start.passes >>
        start.dropped;
    start.reason = static_cast<modes::FirstSampleReason>(code);
    start.reducedChiSquare = static_cast<double>(exact_from(in));
    for (in >> count; next();) {
        Term& term = start.terms.emplace_back();
        term.decay = exact_from(in);
        term.cycles = exact_from(in);
        in >> term.real;
    }
    for (in >> count; next();) {
        start.noiseSteps.push_back(static_cast<double>(exact_from(in)));
        start.noiseLogs.push_back(static_cast<double>(exact_from(in)));
    }
    for (in >> count; next();)
        in >> start.samples.emplace_back();
    for (in >> count; next();) {
        modes::Remark& remark = start.remarks.emplace_back();
        in >> code;
        remark.code = static_cast<modes::RemarkCode>(code);
        remark.value = static_cast<double>(exact_from(in));
        in.get();
        std::getline(in, remark.text);
    }
    in >> line;
    if (!in || line != "end")
        return std::nullopt;
    return start;
}

Start analyse_samples(Work& work, const Samples& samples)
{
    std::string text;
    work.together([&] {
        if (work.team.rank() != 0)
            return;
        modes::Options options = work.options.modes;
        // All modes are needed to explain a record, told of or not.
        options.lowest.reset();
        options.highest.reset();
        options.mostModes.reset();
        options.progress = [&](const modes::Progress&) {
            return !work.options.progress || work.options.progress({"poles", 0, 0});
        };
        modes::JointResult result;
        try {
            result = modes::analyseJointly(samples.records, work.shape().spacing, options);
        } catch (const modes::InputError& e) { // about an option: which record says it does not matter
            const std::string text_of = e.what();
            const std::size_t colon = text_of.compare(0, 7, "record ") == 0 ? text_of.find(": ") : std::string::npos;
            throw Error(colon == std::string::npos ? text_of : text_of.substr(colon + 2));
        }
        Start start = start_from(work, result, samples);
        if (!start.terms.empty())
            find_noise(work, samples, start);
        text = to_text(start);
    });
    return *from_text(work.spread(text));
}

} // namespace tessel::fields
