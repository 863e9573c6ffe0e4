#include "examples/resonator/results.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <utility>
#include <variant>

namespace resonator {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

using Value = std::variant<double, bool>;
using Fields = std::vector<std::pair<std::string, Value>>;

double number(Index count)
{
    return static_cast<double>(count);
}

std::string text(const Value& value, Format format)
{
    if (const bool* const truth = std::get_if<bool>(&value))
        return *truth ? "true" : "false";
    const double number = std::get<double>(value) + 0.0; // makes 0 of -0
    if (!std::isfinite(number)) {
        if (format == Format::json)
            return "null";
        return std::isnan(number) ? "nan" : number > 0.0 ? "inf" : "-inf";
    }
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.17g", number);
    return digits;
}

Fields fit_fields(const Fit& fit)
{
    static const char* const names[] = {"err_l2", "err_rms", "err_peak", "err_rms_mean", "err_peak_mean"};
    Fields fields{{"order", number(fit.order)}};
    for (std::size_t k = 0; k < std::size(names); ++k)
        fields.emplace_back(names[k], fit.failure.empty() ? fit.measures()[k] : kNone);
    return fields;
}

Fields record_fields(const Subject& subject, const Window& window, const Findings& findings, bool as_expected)
{
    const Record& record = subject.record;
    Fields fields{{"samples", number(window.count)},
                  {"sample_step_s", record.spacing * number(window.stride)},
                  {"first_sample_s", record.time(window.first)}};
    for (const auto& field : fit_fields(findings.fit))
        fields.push_back(field);
    fields.emplace_back("singular_values_above_noise", number(findings.hankel.rank));
    fields.emplace_back("analytic_singular_values_above_noise",
                        findings.analytic ? number(findings.analytic->rank) : kNone);
    if (subject.cavity) {
        fields.emplace_back("response_error", findings.response.error());
        fields.emplace_back("as_expected", as_expected);
    }
    return fields;
}

void add_pole(Fields& fields, const std::string& prefix, const std::optional<Complex>& pole)
{
    fields.emplace_back(prefix + "frequency_hz", pole ? frequency_of(*pole) : kNone);
    fields.emplace_back(prefix + "q", pole ? quality_of(*pole) : kNone);
    fields.emplace_back(prefix + "decay_per_s", pole ? -pole->real() : kNone);
}

void add_residue(Fields& fields, const std::string& prefix, const std::optional<Complex>& residue)
{
    fields.emplace_back(prefix + "amplitude", residue ? std::abs(*residue) : kNone);
    fields.emplace_back(prefix + "phase_rad", residue ? std::arg(*residue) : kNone);
}

void add_pole_errors(Fields& fields, const std::string& prefix, const Pair& pair, Road road)
{
    const bool both = pair.exact && pair.pole(road);
    fields.emplace_back(prefix + "frequency_error", both ? pair.frequency_error(road) : kNone);
    fields.emplace_back(prefix + "q_error", both ? pair.quality_error(road) : kNone);
}

/// The keys are the same for every mode, whatever of it is missing.
Fields mode_fields(const Pair& pair, bool of_cavity, const std::vector<double>& peaks)
{
    const auto& [exact, found, arpack, hybrj1] = pair;
    const auto exact_pole = exact ? std::optional(exact->pole) : std::nullopt;
    const auto pole = pair.pole(Road::fit), shown = exact_pole ? exact_pole : pole;
    Fields fields;
    if (of_cavity) {
        fields.emplace_back("m", exact ? number(exact->m) : kNone);
        fields.emplace_back("n", exact ? number(exact->n) : kNone);
    }
    add_pole(fields, "", pole);
    add_residue(fields, "", found ? std::optional(found->residue) : std::nullopt);
    fields.emplace_back("peak", shown && stands_out(line_of(*shown), peaks));
    if (of_cavity) {
        const bool both = exact && found;
        add_pole(fields, "exact_", exact_pole);
        add_residue(fields, "exact_", exact ? std::optional(exact->residue) : std::nullopt);
        add_pole_errors(fields, "", pair, Road::fit);
        fields.emplace_back("amplitude_error", both ? pair.amplitude_error() : kNone);
        fields.emplace_back("phase_error_rad", both ? pair.phase_error() * std::numbers::pi / 180.0 : kNone);
        add_pole(fields, "arpack_", arpack);
        add_pole_errors(fields, "arpack_", pair, Road::arpack);
        add_pole(fields, "hybrj1_", hybrj1);
        add_pole_errors(fields, "hybrj1_", pair, Road::hybrj1);
    }
    return fields;
}

/// The members of an object.
std::string json(const Fields& fields, const char* separator)
{
    std::string result;
    for (const auto& [key, value] : fields)
        result += (result.empty() ? "\"" : separator + std::string("\"")) + key + "\": " + text(value, Format::json);
    return result;
}

/// An array, an object on each line.
std::string json(const std::vector<Fields>& rows)
{
    std::string result;
    for (const Fields& row : rows)
        result += (result.empty() ? "\n    {" : ",\n    {") + json(row, ", ") + "}";
    return "[" + result + "\n  ]";
}

} // namespace

std::string results(Format format, const Subject& subject, const Window& window, const Findings& findings,
                    bool as_expected)
{
    const Fields whole = record_fields(subject, window, findings, as_expected);
    const bool of_cavity = subject.cavity.has_value();
    std::vector<Fields> modes, fits;
    const auto add_mode = [&](const Pair& pair) {
        modes.push_back(mode_fields(pair, of_cavity, findings.response.peaks));
    };
    for (const Pair& pair : findings.pairs)
        add_mode(pair);
    for (const Mode& mode : findings.modes)
        if (!of_cavity && mode.kind == Kind::kept)
            add_mode({{}, mode});
    for (const Fit& fit : findings.fits)
        fits.push_back(fit_fields(fit));

    if (format == Format::json)
        return "{\n  " + json(whole, ",\n  ") + ",\n  \"fits\": " + json(fits) + ",\n  \"modes\": " + json(modes) +
               "\n}\n";
    std::string table;
    const auto add_line = [&](const Fields& mode, auto cell) {
        for (const Fields* part : {&whole, &mode})
            for (const auto& field : *part)
                table += cell(field) + ",";
        table.back() = '\n';
    };
    add_line(mode_fields({}, of_cavity, {}), [](const auto& field) { return field.first; });
    for (const Fields& mode : modes)
        add_line(mode, [&](const auto& field) { return text(field.second, format); });
    return table;
}

} // namespace resonator
