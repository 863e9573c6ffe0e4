#include "app/text.h"

#include "app/error.h"
#include "app/interrupt.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace tessel::app {

namespace {

constexpr std::size_t kPreamble = 1000; // lines in front of the numbers
constexpr std::size_t kLaidOver = 8;    // columns for each row in a file that lies on its side

using View = std::string_view;

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

bool is_end(char c)
{
    return c == '\n' || c == '\r';
}

/// Where a comment starts that takes the rest of the line.
bool starts_comment(View text)
{
    return !text.empty() && (text[0] == '#' || text[0] == '%' || text[0] == '!' || text.starts_with("//"));
}

View trimmed(View text)
{
    while (!text.empty() && (is_blank(text.front()) || is_end(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && (is_blank(text.back()) || is_end(text.back())))
        text.remove_suffix(1);
    return text;
}

/// One line without its end; `at` moves behind it.
View take_line(const char*& at, const char* end)
{
    const char* const first = at;
    while (at != end && !is_end(*at))
        ++at;
    const View line(first, static_cast<std::size_t>(at - first));
    if (at != end)
        at += *at == '\r' && at + 1 != end && at[1] == '\n' ? 2 : 1;
    return line;
}

struct Number
{
    double real = 0, imag = 0;
    bool complex = false;
};

/// A number in any of its forms without a sign in front, as far as it goes: returns where it ends, or null.
const char* parse_real(const char* first, const char* last, double& value)
{
    const bool negative = first != last && *first == '-';
    if (first != last && (*first == '+' || *first == '-'))
        ++first;
    if (first == last || *first == '+' || *first == '-')
        return nullptr;
    auto [stop, status] = std::from_chars(first, last, value);
    if (status == std::errc::invalid_argument)
        return nullptr;
    std::string plain;
    if (stop != last && std::isfinite(value)) {
        // Fortran: a D for the E, or neither where the exponent has three digits.
        const char* exponent = stop;
        if (*exponent == 'D' || *exponent == 'd')
            ++exponent;
        const char* digits = exponent != last && (*exponent == '+' || *exponent == '-') ? exponent + 1 : exponent;
        const char* after = digits;
        while (after != last && *after >= '0' && *after <= '9')
            ++after;
        const bool without = exponent == stop && digits != exponent && after - digits == 3;
        if (after != digits && (exponent != stop || without)) {
            plain.assign(first, stop).append("e").append(exponent, after);
            stop = after;
        }
    }
    if (plain.empty() && status == std::errc::result_out_of_range)
        plain.assign(first, stop);
    if (!plain.empty())
        value = std::strtod(plain.c_str(), nullptr); // zero or infinity beyond the range
    if (negative)
        value = -value;
    return stop;
}

/// A whole word: a number, a complex one, either in quotes.
bool parse_number(View word, Number& number)
{
    if (word.size() >= 2 && (word.front() == '"' || word.front() == '\'') && word.back() == word.front())
        word = trimmed(word.substr(1, word.size() - 2));
    const bool bracketed = word.size() >= 2 && word.front() == '(' && word.back() == ')';
    if (bracketed)
        word = trimmed(word.substr(1, word.size() - 2));
    const char* const last = word.data() + word.size();
    number = {};
    const char* at = parse_real(word.data(), last, number.real);
    if (!at)
        return false;
    if (at == last)
        return true;
    number.complex = true;
    const auto is_unit = [last](const char* c) { return c + 1 == last && (*c == 'i' || *c == 'j'); };
    if (is_unit(at)) {
        number.imag = number.real;
        number.real = 0;
        return true;
    }
    if (bracketed && *at == ',') {
        const View rest = trimmed(View(at + 1, static_cast<std::size_t>(last - at - 1)));
        return parse_real(rest.data(), rest.data() + rest.size(), number.imag) == rest.data() + rest.size();
    }
    if (*at != '+' && *at != '-')
        return false;
    at = parse_real(at, last, number.imag);
    return at && is_unit(at);
}

/// Takes a line apart. Words in quotes or brackets stay whole; the comment at the end goes.
class Splitter
{
public:
    /// @param separator  a comma, a semicolon or a tab; a blank stands for blanks and tabs
    Splitter(View line, char separator) : rest_(trimmed(line)), separator_(separator) {}

    bool next(View& word)
    {
        skip_blanks();
        if (rest_.empty() || starts_comment(rest_))
            return false;
        std::size_t at = 0;
        int depth = 0;
        for (char quote = 0; at < rest_.size(); ++at) {
            const char c = rest_[at];
            if (quote != 0) {
                quote = c == quote ? '\0' : quote;
            } else if ((c == '"' || c == '\'') && at == 0) {
                quote = c;
            } else if (c == '(' || c == '[') {
                ++depth;
            } else if (c == ')' || c == ']') {
                --depth;
            } else if (depth <= 0 && (c == separator_ || (separator_ == ' ' && is_blank(c)) || c == '#')) {
                break;
            }
        }
        word = trimmed(rest_.substr(0, at));
        rest_.remove_prefix(at);
        skip_blanks();
        if (separator_ != ' ' && rest_.starts_with(separator_))
            rest_.remove_prefix(1);
        return true;
    }

private:
    void skip_blanks()
    {
        while (!rest_.empty() && is_blank(rest_.front()) && rest_.front() != separator_)
            rest_.remove_prefix(1);
        while (separator_ == ' ' && !rest_.empty() && is_blank(rest_.front()))
            rest_.remove_prefix(1);
    }

    View rest_;
    char separator_;
};

std::vector<View> split(View line, char separator)
{
    std::vector<View> words;
    View word;
    for (Splitter splitter(line, separator); splitter.next(word);)
        words.push_back(word);
    return words;
}

bool all_numbers(const std::vector<View>& words)
{
    Number number;
    return !words.empty() &&
           std::all_of(words.begin(), words.end(), [&](View word) { return parse_number(word, number); });
}

/// What separates the columns of a line of numbers; 0 if it is none.
char find_separator(View line)
{
    for (const char separator : {';', ',', ' '}) {
        if (separator != ' ' && line.find(separator) == line.npos)
            continue;
        if (all_numbers(split(line, separator)))
            return separator;
    }
    return 0;
}

/// Whether the word is a number like 0,5.
bool has_decimal_comma(View word)
{
    const std::size_t comma = word.find(',');
    if (comma == word.npos || comma == 0 || comma + 1 >= word.size() || word.find_first_of(".()") != word.npos)
        return false;
    std::string plain(word);
    plain[comma] = '.';
    Number number;
    return std::isdigit(static_cast<unsigned char>(word[comma - 1])) && parse_number(plain, number);
}

void check_decimal_commas(View line, std::size_t number)
{
    const View data = trimmed(line);
    const auto refuse = [&](View word) {
        throw Error("decimal commas, as in " + quote(std::string(word)) +
                        ": write points, such as by sed 's/,/./g' where commas do not separate columns",
                    number);
    };
    for (const char separator : {';', ' '}) {
        const std::vector<View> words = split(data, separator);
        const auto found = std::find_if(words.begin(), words.end(), has_decimal_comma);
        Number ignored;
        if (found != words.end() && std::all_of(words.begin(), words.end(), [&](View word) {
                return has_decimal_comma(word) || parse_number(word, ignored);
            }))
            // "1,2" alone may be two columns, "0,05" may not.
            if (words.size() > 1 || (found->find(",0") != found->npos && found->find(",0") + 2 < found->size() &&
                                     std::isdigit(static_cast<unsigned char>((*found)[found->find(",0") + 2]))))
                refuse(*found);
    }
}

std::string plain_name(View word)
{
    word = trimmed(word);
    if (word.size() >= 2 && (word.front() == '"' || word.front() == '\'') && word.back() == word.front())
        word = trimmed(word.substr(1, word.size() - 2));
    return std::string(word);
}

/// A line of names for so many columns; empty if it is none. Units in brackets belong to the name before.
std::vector<std::string> find_names(View line, std::size_t count)
{
    line = trimmed(line);
    while (starts_comment(line))
        line = trimmed(line.substr(line.starts_with("//") ? 2 : 1));
    for (const char separator : {'\t', ';', ',', ' '}) {
        if (separator != ' ' && line.find(separator) == line.npos)
            continue;
        std::vector<std::string> names;
        for (const View word : split(line, separator)) {
            const std::string name = plain_name(word);
            if (separator == ' ' && !names.empty() && (name.starts_with('(') || name.starts_with('[')))
                names.back() += " " + name;
            else
                names.push_back(name);
        }
        Number number;
        const auto is_name = [&](const std::string& name) {
            return std::any_of(name.begin(), name.end(),
                               [](unsigned char c) { return std::isalpha(c) || c >= 0x80; }) &&
                   !parse_number(name, number);
        };
        if (names.size() == count && std::any_of(names.begin(), names.end(), is_name))
            return names;
    }
    return {};
}

class Reader
{
public:
    explicit Reader(std::string bytes) : bytes_(std::make_shared<const std::string>(std::move(bytes)))
    {
        at_ = bytes_->data();
        end_ = at_ + bytes_->size();
        if (bytes_->starts_with("\xef\xbb\xbf"))
            at_ += 3;
    }

    Columns read()
    {
        read_preamble();
        while (at_ != end_)
            read_row();
        return finish();
    }

private:
    /// Moves to the first line of numbers and learns from it.
    void read_preamble()
    {
        std::vector<View> before;
        for (line_ = 1; at_ != end_; ++line_) {
            const char* const first = at_;
            const View line = take_line(at_, end_);
            const View content = trimmed(line);
            if (content.empty())
                continue;
            if (!starts_comment(content)) {
                check_decimal_commas(content, line_);
                separator_ = find_separator(content);
                if (separator_ != 0) {
                    const std::size_t width = split(content, separator_).size();
                    read_names(before, width);
                    columns_.columns.resize(width);
                    const std::size_t rows = static_cast<std::size_t>(end_ - first) / (line.size() + 1) + 1;
                    if (width < 64) {
                        for (Column& column : columns_.columns)
                            column.real.reserve(rows + rows / 8);
                        rows_.reserve(rows + rows / 8);
                    }
                    at_ = first;
                    return;
                }
            }
            before.push_back(content);
            if (before.size() > kPreamble)
                break;
        }
        throw Error("holds no line of numbers" +
                    std::string(at_ != end_ ? " among its first " + std::to_string(kPreamble) : ""));
    }

    /// The last line that fits gives the names; a line of units may stand behind it.
    void read_names(const std::vector<View>& before, std::size_t width)
    {
        std::vector<std::string> names;
        for (auto line = before.rbegin(); line != before.rend() && line < before.rbegin() + 3; ++line) {
            std::vector<std::string> found = find_names(*line, width);
            if (found.empty())
                continue;
            std::string unit = found.front();
            unit.erase(std::remove_if(unit.begin(), unit.end(),
                                      [](char c) { return c == '(' || c == ')' || c == '[' || c == ']'; }),
                       unit.end());
            const bool units = names.empty() && known_unit(unit) && unit.find("step") == unit.npos;
            names = std::move(found);
            if (!units)
                break;
            columns_.unit = known_unit(unit);
        }
        names_ = std::move(names);
    }

    void read_row()
    {
        const std::size_t width = columns_.columns.size();
        const char* const first = at_;
        if (rows_.size() % 65536 == 0)
            check_interrupt();
        for (std::size_t column = 0; column < width; ++column) {
            double value;
            if (!read_plain(value, column + 1 == width)) {
                at_ = first;
                cut(column);
                read_words();
                return;
            }
            columns_.columns[column].real.push_back(value);
            if (!columns_.columns[column].imag.empty())
                columns_.columns[column].imag.push_back(0);
        }
        add_row(first);
    }

    /// The usual case: a number in its plain form, with one separator behind it.
    bool read_plain(double& value, bool last)
    {
        while (at_ != end_ && is_blank(*at_))
            ++at_;
        const auto [stop, status] = std::from_chars(at_, end_, value);
        if (status != std::errc())
            return false;
        at_ = stop;
        const char* const behind = at_;
        while (at_ != end_ && is_blank(*at_))
            ++at_;
        if (last) {
            if (at_ != end_ && !is_end(*at_))
                return false;
            if (at_ != end_)
                at_ += *at_ == '\r' && at_ + 1 != end_ && at_[1] == '\n' ? 2 : 1;
            return true;
        }
        if (separator_ == ' ')
            return at_ != behind;
        return at_ != end_ && *at_++ == separator_;
    }

    /// Takes back what a row left in its first columns.
    void cut(std::size_t count)
    {
        for (std::size_t k = 0; k < count; ++k) {
            columns_.columns[k].real.pop_back();
            if (!columns_.columns[k].imag.empty())
                columns_.columns[k].imag.pop_back();
        }
    }

    /// A line in any form that is understood, or one without numbers.
    void read_words()
    {
        const char* const first = at_;
        const View line = take_line(at_, end_);
        const View content = trimmed(line);
        if (content.empty() || starts_comment(content) || content == "\x1a")
            return;
        const std::size_t width = columns_.columns.size();
        const auto number_of_line = [&] { return line_of(first); };
        // A run that still writes, or was cut, leaves part of a line.
        const bool is_cut = first + line.size() == end_ && !rows_.empty();
        const auto leave_out = [&] { columns_.notes.push_back("the last line is cut and was left out"); };
        std::vector<Number> numbers;
        View word;
        for (Splitter splitter(content, separator_); splitter.next(word);) {
            if (numbers.size() == width && width <= 4096)
                throw Error(columns_text(split(content, separator_).size()) + ", where the lines before have " +
                                std::to_string(width),
                            number_of_line());
            Number number;
            if (!parse_number(word, number)) {
                if (is_cut)
                    return leave_out();
                check_decimal_commas(content, number_of_line());
                throw Error(word.empty() ? "column " + std::to_string(numbers.size() + 1) + " is empty"
                                         : quote(std::string(word)) + " is not a number",
                            number_of_line());
            }
            numbers.push_back(number);
        }
        if (numbers.size() != width) {
            if (is_cut && numbers.size() < width)
                return leave_out();
            throw Error(columns_text(numbers.size()) + ", where the lines before have " + std::to_string(width),
                        number_of_line());
        }
        for (std::size_t k = 0; k < width; ++k) {
            Column& column = columns_.columns[k];
            if (numbers[k].complex && column.imag.empty())
                column.imag.assign(column.real.size(), 0.0);
            column.real.push_back(numbers[k].real);
            if (numbers[k].complex || !column.imag.empty())
                column.imag.push_back(numbers[k].imag);
        }
        add_row(first);
    }

    static std::string columns_text(std::size_t count)
    {
        return std::to_string(count) + (count == 1 ? " column" : " columns");
    }

    void add_row(const char* first) { rows_.push_back(static_cast<std::size_t>(first - bytes_->data())); }

    std::size_t line_of(const char* where) const
    {
        return line_of(*bytes_, static_cast<std::size_t>(where - bytes_->data()));
    }

    static std::size_t line_of(const std::string& bytes, std::size_t where)
    {
        const char* at = bytes.data();
        std::size_t line = 1;
        while (at < bytes.data() + where) {
            take_line(at, bytes.data() + where);
            line += at < bytes.data() + where || (where > 0 && is_end(bytes[where - 1])) ? 1 : 0;
        }
        return line;
    }

    Columns finish()
    {
        std::vector<Column>& columns = columns_.columns;
        const std::size_t rows = columns_.rows();
        if (columns.size() >= kLaidOver && rows * kLaidOver <= columns.size()) {
            lay_over();
            return std::move(columns_);
        }
        for (std::size_t k = 0; k < names_.size(); ++k)
            columns[k].name = names_[k];
        const auto starts = std::make_shared<const std::vector<std::size_t>>(std::move(rows_));
        columns_.line = [bytes = bytes_, starts](std::size_t row) { return line_of(*bytes, (*starts)[row]); };
        columns_.field = [bytes = bytes_, starts, separator = separator_](std::size_t row, std::size_t column) {
            const char* at = bytes->data() + (*starts)[row];
            View word;
            Splitter splitter(take_line(at, bytes->data() + bytes->size()), separator);
            for (std::size_t k = 0; k <= column; ++k)
                if (!splitter.next(word))
                    return std::string();
            return plain_name(word);
        };
        return std::move(columns_);
    }

    /// Rows become columns.
    void lay_over()
    {
        const std::size_t rows = columns_.rows();
        std::vector<Column> columns(rows);
        for (std::size_t row = 0; row < rows; ++row) {
            const bool complex = std::any_of(columns_.columns.begin(), columns_.columns.end(),
                                             [](const Column& c) { return !c.imag.empty(); });
            for (const Column& old : columns_.columns) {
                columns[row].real.push_back(old.real[row]);
                if (complex)
                    columns[row].imag.push_back(old.imag.empty() ? 0.0 : old.imag[row]);
            }
        }
        columns_.notes.push_back("each line was taken for a column");
        columns_.columns = std::move(columns);
    }

    std::shared_ptr<const std::string> bytes_;
    const char* at_ = nullptr;
    const char* end_ = nullptr;
    std::size_t line_ = 1;
    char separator_ = 0;
    std::vector<std::string> names_;
    std::vector<std::size_t> rows_; ///< where each row starts
    Columns columns_;
};

} // namespace

Columns read_text(std::string bytes)
{
    return Reader(std::move(bytes)).read();
}

} // namespace tessel::app
