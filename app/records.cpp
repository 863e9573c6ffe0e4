#include "app/records.h"

#include "app/apart.h"
#include "app/error.h"
#include "app/hdf5_file.h"
#include "app/npy.h"
#include "app/source.h"
#include "app/text.h"
#include "app/times.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tessel::app {

namespace {

constexpr double kSameSpacing = 1e-6; // relative, of two that say the same

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

std::string plain(const std::string& text)
{
    std::string result;
    for (const char c : text)
        if (std::isalnum(static_cast<unsigned char>(c)))
            result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

/// The name without its unit.
std::string base_of(const std::string& name)
{
    std::string base = name.substr(0, name.find_first_of("([/"));
    if (base == name && unit_in_name(name))
        base = name.substr(0, name.find_last_of("_ "));
    return plain(base);
}

bool names_times(const std::string& name)
{
    const std::string base = base_of(name);
    return base == "t" || base == "time" || base == "times";
}

bool names_steps(const std::string& name)
{
    const std::string base = base_of(name);
    for (const char* word : {"step", "steps", "timestep", "timesteps", "iteration", "iterations", "iter", "cycle", "n"})
        if (base == word)
            return true;
    return false;
}

/// A column's name as a part of a complex one: what the parts have in common, and which it is.
struct Part
{
    std::string whole;
    char part = 0; ///< r or i; 0 if it is none
};

Part part_in_name(const std::string& name)
{
    static constexpr std::pair<const char*, char> kWords[] = {
        {"imaginary", 'i'}, {"imag", 'i'}, {"im", 'i'}, {"real", 'r'}, {"re", 'r'}};
    std::string low = name;
    std::transform(low.begin(), low.end(), low.begin(), [](unsigned char c) { return std::tolower(c); });
    const auto apart = [&](std::size_t at) {
        return at >= low.size() || !std::isalnum(static_cast<unsigned char>(low[at]));
    };
    const auto strip = [](std::string text) {
        while (!text.empty() && std::string_view(" _.-:([").find(text.front()) != std::string_view::npos)
            text.erase(0, 1);
        while (!text.empty() && std::string_view(" _.-:)]").find(text.back()) != std::string_view::npos)
            text.pop_back();
        return text;
    };
    for (const auto& [word, part] : kWords) {
        const std::size_t length = std::string_view(word).size();
        if (low.starts_with(word) && apart(length))
            return {strip(name.substr(length)), part};
        if (low.size() > length && low.ends_with(word) &&
            !std::isalnum(static_cast<unsigned char>(low[low.size() - length - 1])))
            return {strip(name.substr(0, low.size() - length)), part};
    }
    return {name, 0};
}

/// Where the times come from, once that is decided.
struct Timing
{
    double start = 0, spacing = 0, error = 0;
    std::optional<std::size_t> column; ///< that is no record
};

/// Columns that make one record.
struct Choice
{
    std::size_t real;
    std::optional<std::size_t> imag;
    std::string label;
};

class Maker
{
public:
    Maker(Columns columns, const std::string& file, const Options& options)
        : data_(std::move(columns)), file_(file), options_(options)
    {}

    std::vector<Record> make()
    {
        Timing timing = find_timing();
        std::vector<Record> records;
        for (const Choice& choice : choose(timing.column))
            records.push_back(make_record(choice, timing));
        return records;
    }

private:
    std::string name_of(std::size_t column) const
    {
        const std::string& name = data_.columns[column].name;
        return name.empty() ? "column " + std::to_string(column + 1) : quote(name);
    }

    std::size_t line_of(std::size_t row) const { return data_.line ? data_.line(row) : 0; }

    /// Where the reader cannot name a line, the row.
    std::string row_text(std::size_t row) const { return data_.line ? "" : "row " + std::to_string(row + 1) + ": "; }

    Grid grid_of(const Column& column, std::optional<std::size_t> index) const
    {
        return fit_grid(column.real, [&] {
            if (data_.field && index)
                return printed_rounding(column.real, [&](std::size_t row) { return data_.field(row, *index); });
            std::vector<double> unit(column.real.size(), 0.0);
            if (column.single)
                std::transform(column.real.begin(), column.real.end(), unit.begin(),
                               [](double t) { return std::ldexp(std::abs(t), -23); });
            return unit;
        });
    }

    void set_unit(const std::optional<TimeUnit>& said, const std::string& by)
    {
        if (said && options_.unit && !(*said == *options_.unit))
            throw Error(by + " says that times are in " + said->name + ", --time-unit says " + options_.unit->name);
        unit_ = options_.unit ? *options_.unit : said.value_or(TimeUnit{});
    }

    double given_spacing() const { return in_unit(*options_.spacing, unit_); }

    Timing find_timing()
    {
        set_unit(data_.unit, "the file");
        if (data_.spacing)
            return spacing_of_file();
        if (data_.times)
            return times_beside();
        std::optional<std::size_t> times, steps;
        for (std::size_t k = data_.columns.size(); k-- > 0;) {
            if (names_times(data_.columns[k].name))
                times = k;
            else if (names_steps(data_.columns[k].name) && k == 0)
                steps = k;
        }
        if (times)
            return named_times(*times);
        if (data_.columns.size() > 1 && data_.columns[0].imag.empty())
            if (const std::optional<Timing> timing = first_column(steps.has_value()))
                return *timing;
        return no_times();
    }

    Timing spacing_of_file()
    {
        // The file's value is in its own unit, which is --time-unit or what it says.
        Timing timing{data_.start, *data_.spacing, 0, {}};
        if (options_.spacing && std::abs(given_spacing() - timing.spacing) > kSameSpacing * timing.spacing)
            throw Error("the attribute " + data_.spacingFrom + " says that the spacing is " + number(timing.spacing) +
                        " " + unit_.name + ", --dt says " + number(given_spacing()) + ": leave out --dt");
        data_.notes.push_back("the spacing is that of the attribute " + data_.spacingFrom);
        for (std::size_t k = 0; k < data_.columns.size(); ++k)
            if (names_times(data_.columns[k].name))
                timing.column = k;
        return timing;
    }

    Timing times_beside()
    {
        const Grid grid = grid_of(*data_.times, {});
        if (grid.fault)
            throw Error("the dataset " + data_.times->name + ": row " + std::to_string(*grid.fault + 1) + ": " +
                        grid.text);
        data_.notes.push_back("the times are those of the dataset " + data_.times->name);
        return check_given(grid, {}, "the dataset " + data_.times->name);
    }

    Timing named_times(std::size_t column)
    {
        set_unit(data_.unit ? data_.unit : unit_in_name(data_.columns[column].name), "the header");
        const Grid grid = grid_of(data_.columns[column], column);
        refuse(grid);
        return check_given(grid, column, name_of(column));
    }

    void refuse(const Grid& grid, const std::string& more = "") const
    {
        if (grid.fault)
            throw Error(row_text(*grid.fault) + grid.text + more, line_of(*grid.fault));
    }

    /// The first of several columns, if it holds times or counts steps.
    std::optional<Timing> first_column(bool named_steps)
    {
        const Column& column = data_.columns[0];
        if (options_.spacing && column.real.size() < 3)
            return {}; // any two numbers are equally spaced
        const Grid grid = grid_of(column, 0);
        if (grid.fault) {
            if (named_steps || !options_.spacing)
                refuse(grid, named_steps ? "" : "; if column 1 holds no times, give their spacing by --dt");
            const bool rises =
                column.real.size() >= 8 &&
                std::adjacent_find(column.real.begin(), column.real.end(), std::greater_equal<>()) == column.real.end();
            if (rises && options_.columns.empty())
                refuse(grid, "; column 1 rises as times do: if it holds samples, say so by --column");
            return {};
        }
        const bool counts = grid.spacing == 1 && (grid.start == 0 || grid.start == 1) && !unit_in_name(column.name);
        if (named_steps || counts)
            return steps(grid, named_steps);
        set_unit(data_.unit ? data_.unit : unit_in_name(column.name), "the header");
        return check_given(grid, 0, name_of(0));
    }

    Timing steps(const Grid& grid, bool named)
    {
        Timing timing{grid.start, grid.spacing, grid.relativeError, 0};
        const TimeUnit steps{"steps", {}};
        if (options_.spacing) {
            // A step, not the spacing, where every tenth one was written, say.
            const double step = given_spacing();
            timing.start *= step;
            timing.spacing *= step;
            data_.notes.push_back(name_of(0) + " counts steps of --dt");
        } else if (!options_.unit && !data_.unit) {
            unit_ = steps;
            data_.notes.push_back(name_of(0) + (named ? " counts steps" : " was taken for a count of steps") +
                                  ": with --dt frequencies are in hertz");
        }
        return timing;
    }

    /// Times that were found, beside a spacing that was given.
    Timing check_given(const Grid& grid, std::optional<std::size_t> column, const std::string& where)
    {
        Timing timing{grid.start, grid.spacing, grid.relativeError, column};
        if (grid.coarse)
            data_.notes.push_back("the times are rounded so coarsely that a missing row would not be seen");
        if (!options_.spacing)
            return timing;
        const double given = given_spacing();
        if (std::abs(given - grid.spacing) <= std::max(kSameSpacing, 10 * grid.relativeError) * grid.spacing) {
            timing.spacing = given;
            timing.error = 0;
        } else if (options_.columns.empty()) {
            throw Error(where + " holds times, " + number(grid.spacing) + " " + unit_.name + " apart, and --dt says " +
                        number(given) + ": leave out --dt, or choose the samples by --column");
        } else {
            data_.notes.push_back(where + " holds times, " + number(grid.spacing) + " " + unit_.name +
                                  " apart; --dt was used in their place");
            timing = {0, given, 0, column};
        }
        return timing;
    }

    Timing no_times()
    {
        Timing timing;
        if (options_.spacing)
            timing.spacing = given_spacing();
        else if (unit_.name == "steps")
            timing.spacing = 1;
        else
            throw Error("holds samples without times: give their spacing, such as --dt 3.3e-12, or --time-unit steps");
        return timing;
    }

    /// Columns by the words of --column; all but the times without it.
    std::vector<std::size_t> chosen_columns(std::optional<std::size_t> times) const
    {
        std::vector<std::size_t> result;
        const auto add = [&](std::size_t column) {
            if (column == times)
                throw Error("--column: " + name_of(column) + " holds the times");
            if (std::find(result.begin(), result.end(), column) == result.end())
                result.push_back(column);
        };
        if (options_.columns.empty())
            for (std::size_t k = 0; k < data_.columns.size(); ++k)
                if (k != times)
                    add(k);
        for (const std::string& words : options_.columns) {
            if (const auto column = find_column(words)) {
                add(*column);
                continue;
            }
            for (std::size_t from = 0; from <= words.size();) {
                const std::size_t to = std::min(words.find(',', from), words.size());
                const std::string word = words.substr(from, to - from);
                const auto column = find_column(word);
                if (!column)
                    throw Error("there is no column " + quote(word) + "; there " + columns_text());
                add(*column);
                from = to + 1;
            }
        }
        if (result.empty())
            throw Error("holds times, but no samples");
        return result;
    }

    std::string columns_text() const
    {
        const std::size_t count = data_.columns.size();
        std::string text;
        for (std::size_t k = 0; k < count && k < 8; ++k)
            if (!data_.columns[k].name.empty())
                text += (text.empty() ? "" : ", ") + quote(data_.columns[k].name);
        if (text.empty())
            return count == 1 ? "is one, 1" : "are columns 1 to " + std::to_string(count);
        return (count == 1 ? "is " : "are ") + text + (count > 8 ? ", ..." : "");
    }

    std::optional<std::size_t> find_column(const std::string& word) const
    {
        for (std::size_t k = 0; k < data_.columns.size(); ++k)
            if (data_.columns[k].name == word && !word.empty())
                return k;
        for (std::size_t k = 0; k < data_.columns.size(); ++k)
            if (!word.empty() && part_in_name(data_.columns[k].name).whole == word)
                return k;
        std::size_t value = 0;
        const auto [stop, status] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (status == std::errc() && stop == word.data() + word.size() && value >= 1 && value <= data_.columns.size())
            return value - 1;
        return {};
    }

    /// The other part of a complex column that is spread over two.
    std::optional<std::size_t> find_imaginary(std::size_t real) const
    {
        const Part part = part_in_name(data_.columns[real].name);
        if (part.part != 'r')
            return {};
        for (std::size_t k = 0; k < data_.columns.size(); ++k) {
            const Part other = part_in_name(data_.columns[k].name);
            if (other.part == 'i' && other.whole == part.whole)
                return k;
        }
        return {};
    }

    std::vector<Choice> choose(std::optional<std::size_t> times)
    {
        std::vector<std::size_t> columns = chosen_columns(times);
        const bool one = columns.size() == 1 && options_.columns.empty();
        std::vector<Choice> choices;
        const auto label = [&](std::size_t column, bool alone) {
            const std::string& name = data_.columns[column].name;
            return !name.empty() ? name : alone ? "" : "column " + std::to_string(column + 1);
        };
        if (options_.complexPairs) {
            if (columns.size() > 1 && columns.size() % 2 != 0)
                throw Error("--complex: " + std::to_string(columns.size()) +
                            " columns of samples are no pairs of real and imaginary parts");
            for (std::size_t k = 0; k < columns.size(); k += 2) {
                const bool pair = columns.size() > 1;
                if (pair && !(data_.columns[columns[k]].imag.empty() && data_.columns[columns[k + 1]].imag.empty()))
                    throw Error("--complex: the columns are complex by themselves");
                const bool alone = columns.size() <= 2 && options_.columns.empty();
                const Part part = part_in_name(data_.columns[columns[k]].name);
                choices.push_back({columns[k], pair ? std::optional(columns[k + 1]) : std::nullopt,
                                   part.part == 'r' ? part.whole : label(columns[k], alone)});
            }
            return choices;
        }
        bool unnamed = true;
        for (const std::size_t column : columns) {
            const auto is_used = [&](const Choice& choice) { return choice.imag == column || choice.real == column; };
            if (std::any_of(choices.begin(), choices.end(), is_used))
                continue;
            unnamed = unnamed && data_.columns[column].name.empty() && data_.columns[column].imag.empty();
            if (const auto imag = find_imaginary(column))
                choices.push_back({column, imag, part_in_name(data_.columns[column].name).whole});
            else if (const std::optional<std::size_t> real = find_real(column))
                choices.push_back({*real, column, part_in_name(data_.columns[column].name).whole});
            else
                choices.push_back({column, {}, label(column, one)});
        }
        if (unnamed && choices.size() == 2 && options_.columns.empty())
            data_.notes.push_back(
                "two columns were taken for two records: if they are real and imaginary parts, say --complex");
        return choices;
    }

    std::optional<std::size_t> find_real(std::size_t imag) const
    {
        if (part_in_name(data_.columns[imag].name).part != 'i')
            return {};
        for (std::size_t k = 0; k < data_.columns.size(); ++k)
            if (find_imaginary(k) == imag)
                return k;
        return {};
    }

    void check_finite(const std::vector<double>& values, std::size_t column) const
    {
        const auto bad = std::find_if(values.begin(), values.end(), [](double v) { return !std::isfinite(v); });
        if (bad == values.end())
            return;
        const auto row = static_cast<std::size_t>(bad - values.begin());
        throw Error(row_text(row) + "the sample in " + name_of(column) + " is " + number(*bad), line_of(row));
    }

    Record make_record(const Choice& choice, const Timing& timing)
    {
        Record record;
        record.file = file_;
        record.column = choice.label;
        record.start = timing.start;
        record.spacing = timing.spacing;
        record.spacingError = timing.error;
        record.unit = unit_;
        record.notes = data_.notes;
        Column& real = data_.columns[choice.real];
        check_finite(real.real, choice.real);
        check_finite(real.imag, choice.real);
        std::vector<double>* imag = real.imag.empty() ? nullptr : &real.imag;
        if (choice.imag) {
            check_finite(data_.columns[*choice.imag].real, *choice.imag);
            if (imag || !data_.columns[*choice.imag].imag.empty())
                throw Error(name_of(choice.real) + " and " + name_of(*choice.imag) + " are complex by themselves");
            imag = &data_.columns[*choice.imag].real;
        }
        if (imag) {
            record.complex.reserve(real.real.size());
            for (std::size_t k = 0; k < real.real.size(); ++k)
                record.complex.emplace_back(real.real[k], (*imag)[k]);
        } else {
            record.real = std::move(real.real);
        }
        return record;
    }

    Columns data_;
    const std::string& file_;
    const Options& options_;
    TimeUnit unit_;
};

} // namespace

Columns read_columns(const std::string& argument, const Options& options)
{
    const Source source = parse_source(argument);
    if (is_hdf5(source.file))
        // Its library does not stand every damaged file.
        return read_apart([&] { return read_hdf5(source.file, source.dataset, options.axis); });
    std::string bytes = read_bytes(source.file);
    if (!source.dataset.empty())
        throw Error(quote(source.file) + " is no HDF5 file, which alone has paths inside");
    if (is_npy(bytes))
        return read_npy(bytes, options.axis);
    check_kind(bytes);
    return read_text(std::move(bytes));
}

std::vector<Record> make_records(Columns columns, const std::string& file, const Options& options)
{
    return Maker(std::move(columns), file, options).make();
}

} // namespace tessel::app
