#include "fields/start.h"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace tessel::fields {

namespace {

constexpr const char* kHeader = "tessel-fields poles 1";

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

} // namespace

std::string to_text(const Start& start)
{
    std::ostringstream out;
    out << kHeader << '\n'
        << start.firstStep << ' ' << static_cast<int>(start.reason) << ' ' << start.background << ' ' << start.rounds
        << ' ' << start.passes << ' ' << exact(static_cast<Extended>(start.reducedChiSquare)) << '\n'
        << start.terms.size() << '\n';
    for (const Term& term : start.terms)
        out << exact(term.decay) << ' ' << exact(term.cycles) << ' ' << term.real << '\n';
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
    in >> start.firstStep >> code >> start.background >> start.rounds >> start.passes;
    start.reason = static_cast<modes::FirstSampleReason>(code);
    start.reducedChiSquare = static_cast<double>(exact_from(in));
    for (in >> count; next();) {
        Term& term = start.terms.emplace_back();
        term.decay = exact_from(in);
        term.cycles = exact_from(in);
        in >> term.real;
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
        text =
            to_text(start_from(work, modes::analyseJointly(samples.records, work.shape().spacing, options), samples));
    });
    return *from_text(work.spread(text));
}

} // namespace tessel::fields
