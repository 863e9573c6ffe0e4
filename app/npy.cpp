#include "app/npy.h"

#include "app/error.h"
#include "app/interrupt.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

namespace tessel::app {

namespace {

using View = std::string_view;
using namespace std::string_view_literals;

constexpr View kMagic = "\x93NUMPY"sv;
static_assert(std::endian::native == std::endian::little);

/// One number of an array's element, or one field of a record.
struct Field
{
    std::string name;
    char kind = 0;        ///< f, c, i, u or b
    std::size_t size = 0; ///< bytes
    std::size_t offset = 0;
    bool swapped = false; ///< most significant byte first
};

struct Header
{
    std::vector<Field> fields;
    std::size_t itemSize = 0;
    bool fortran = false;
    std::vector<std::size_t> shape;
};

[[noreturn]] void refuse(const std::string& what)
{
    throw Error("this .npy file " + what);
}

/// Takes the header's dictionary apart: a literal of Python with strings, tuples, lists, True and False.
class Parser
{
public:
    explicit Parser(View text) : rest_(text) {}

    Header parse()
    {
        Header header;
        bool descr = false, order = false, shape = false;
        expect('{');
        while (!take('}')) {
            const std::string key = string();
            expect(':');
            if (key == "descr") {
                parse_descr(header);
                descr = true;
            } else if (key == "fortran_order") {
                header.fortran = word("True");
                if (!header.fortran && !word("False"))
                    refuse("has a header that cannot be understood");
                order = true;
            } else if (key == "shape") {
                expect('(');
                while (!take(')')) {
                    header.shape.push_back(number());
                    take(',');
                }
                shape = true;
            } else {
                refuse("has a header that cannot be understood");
            }
            take(',');
        }
        if (!descr || !order || !shape)
            refuse("has a header that cannot be understood");
        return header;
    }

private:
    void skip()
    {
        while (!rest_.empty() && std::isspace(static_cast<unsigned char>(rest_.front())))
            rest_.remove_prefix(1);
    }
    bool take(char c)
    {
        skip();
        if (rest_.empty() || rest_.front() != c)
            return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool word(View text)
    {
        skip();
        if (!rest_.starts_with(text))
            return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    void expect(char c)
    {
        if (!take(c))
            refuse("has a header that cannot be understood");
    }
    std::string string()
    {
        skip();
        const char quote = rest_.empty() ? '\0' : rest_.front();
        const std::size_t close = rest_.find(quote, 1);
        if ((quote != '\'' && quote != '"') || close == rest_.npos)
            refuse("has a header that cannot be understood");
        std::string text(rest_.substr(1, close - 1));
        rest_.remove_prefix(close + 1);
        return text;
    }
    std::size_t number()
    {
        skip();
        std::size_t value = 0;
        const auto [stop, status] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        if (status != std::errc())
            refuse("has a header that cannot be understood");
        rest_.remove_prefix(static_cast<std::size_t>(stop - rest_.data()));
        return value;
    }
    void parse_descr(Header& header)
    {
        if (!take('[')) {
            add_field(header, {}, string());
            return;
        }
        while (!take(']')) {
            expect('(');
            const std::string name = string();
            expect(',');
            skip();
            if (rest_.starts_with('['))
                refuse("holds records inside records, which are not read");
            add_field(header, name, string());
            take(',');
            if (!take(')'))
                refuse("holds arrays inside records, which are not read");
            take(',');
        }
    }
    static void add_field(Header& header, const std::string& name, View type)
    {
        Field field;
        field.name = name;
        field.offset = header.itemSize;
        View rest = type;
        if (!rest.empty() && View("<>|=").find(rest.front()) != View::npos) {
            field.swapped = rest.front() == '>';
            rest.remove_prefix(1);
        }
        field.kind = rest.empty() ? '\0' : rest.front();
        if (!rest.empty())
            rest.remove_prefix(1);
        const auto [stop, status] = std::from_chars(rest.data(), rest.data() + rest.size(), field.size);
        const std::size_t half = field.kind == 'c' ? field.size / 2 : field.size;
        const bool known =
            ((field.kind == 'f' || field.kind == 'c') && (half == 2 || half == 4 || half == 8)) ||
            ((field.kind == 'i' || field.kind == 'u') && (half == 1 || half == 2 || half == 4 || half == 8)) ||
            (field.kind == 'b' && half == 1);
        if (field.kind == 'V' && name.empty() && header.fields.empty())
            refuse("holds raw bytes, not numbers");
        const bool padding = field.kind == 'V' && status == std::errc() && field.size < (1u << 20);
        if (status != std::errc() || stop != rest.data() + rest.size() || (!known && !padding))
            refuse("holds elements of type " + quote(std::string(type)) + ", not numbers of up to 64 bits");
        header.itemSize += field.size;
        if (known)
            header.fields.push_back(std::move(field));
    }

    View rest_;
};

template <class T>
T load(const char* from, bool swapped)
{
    std::array<char, sizeof(T)> bytes;
    std::memcpy(bytes.data(), from, sizeof(T));
    if (swapped)
        std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<T>(bytes);
}

/// IEEE 754 binary16.
double half_precision(std::uint16_t bits)
{
    const int exponent = bits >> 10 & 31, fraction = bits & 1023;
    const double size = exponent == 31  ? (fraction ? NAN : INFINITY)
                        : exponent == 0 ? std::ldexp(fraction, -24)
                                        : std::ldexp(fraction + 1024, exponent - 25);
    return bits >> 15 ? -size : size;
}

double load_real(const char* from, char kind, std::size_t size, bool swapped)
{
    if (kind == 'f')
        return size == 8   ? load<double>(from, swapped)
               : size == 4 ? static_cast<double>(load<float>(from, swapped))
                           : half_precision(load<std::uint16_t>(from, swapped));
    if (kind == 'i')
        return size == 8   ? static_cast<double>(load<std::int64_t>(from, swapped))
               : size == 4 ? static_cast<double>(load<std::int32_t>(from, swapped))
               : size == 2 ? static_cast<double>(load<std::int16_t>(from, swapped))
                           : static_cast<double>(load<std::int8_t>(from, swapped));
    return size == 8   ? static_cast<double>(load<std::uint64_t>(from, swapped))
           : size == 4 ? static_cast<double>(load<std::uint32_t>(from, swapped))
           : size == 2 ? static_cast<double>(load<std::uint16_t>(from, swapped))
                       : static_cast<double>(load<std::uint8_t>(from, swapped));
}

/// `count` numbers, `stride` bytes apart.
void load_column(const char* from, std::size_t count, std::size_t stride, const Field& field, Column& column)
{
    const bool complex = field.kind == 'c';
    const std::size_t size = complex ? field.size / 2 : field.size;
    const char kind = complex ? 'f' : field.kind;
    column.single = kind == 'f' && size < 8;
    column.real.resize(count);
    if (complex)
        column.imag.resize(count);
    for (std::size_t k = 0; k < count; ++k, from += stride) {
        column.real[k] = load_real(from, kind, size, field.swapped);
        if (complex)
            column.imag[k] = load_real(from + size, kind, size, field.swapped);
    }
}

} // namespace

bool is_npy(View bytes)
{
    return bytes.starts_with(kMagic);
}

int time_axis(std::size_t extent0, std::size_t extent1, std::optional<int> axis, Columns& columns)
{
    if (axis)
        return *axis;
    const std::string shape = std::to_string(extent0) + " x " + std::to_string(extent1);
    if (extent0 == extent1)
        throw Error("the array is " + shape + ": say which axis is time, --axis 0 or --axis 1");
    const int chosen = extent0 > extent1 ? 0 : 1;
    columns.notes.push_back("of the array of " + shape + ", axis " + std::to_string(chosen) +
                            " was taken for time (--axis)");
    return chosen;
}

Columns read_npy(View bytes, std::optional<int> axis)
{
    const auto byte = [&](std::size_t at) { return static_cast<std::size_t>(static_cast<unsigned char>(bytes[at])); };
    if (bytes.size() < 10)
        refuse("is cut within its header");
    const std::size_t version = byte(6);
    if (version < 1 || version > 3)
        refuse("is of version " + std::to_string(version) + ", which is not known");
    const std::size_t start = version == 1 ? 10 : 12;
    if (bytes.size() < start)
        refuse("is cut within its header");
    const std::size_t length = byte(8) | byte(9) << 8 | (version == 1 ? 0 : byte(10) << 16 | byte(11) << 24);
    if (bytes.size() - start < length)
        refuse("is cut within its header");
    Header header = Parser(bytes.substr(start, length)).parse();
    const View data = bytes.substr(start + length);
    if (header.fields.empty())
        refuse("holds no numbers");

    std::size_t count = 1;
    for (const std::size_t extent : header.shape)
        if (__builtin_mul_overflow(count, extent, &count))
            refuse("is cut: its header promises more than there is");
    if (count == 0)
        refuse("holds an empty array");
    if (data.size() / header.itemSize < count)
        refuse("is cut: " + std::to_string(data.size() / header.itemSize) + " of " + std::to_string(count) +
               " elements are there");
    const std::size_t dimensions = header.shape.size();
    std::erase(header.shape, 1u);
    if (header.shape.size() > 2)
        refuse("holds an array of " + std::to_string(dimensions) + " dimensions: write one or two of them");
    if (header.shape.empty())
        refuse("holds a single number");

    Columns result;
    std::size_t rows = header.shape[0], others = 1;
    std::size_t rowStride = header.itemSize, otherStride = 0;
    if (header.shape.size() == 2) {
        if (header.fields.size() > 1)
            refuse("holds records in two dimensions, which are not read");
        const int time = time_axis(header.shape[0], header.shape[1], axis, result);
        rows = header.shape[static_cast<std::size_t>(time)];
        others = header.shape[static_cast<std::size_t>(1 - time)];
        const bool contiguous = (time == 0) == header.fortran; // samples of a column lie side by side
        rowStride = contiguous ? header.itemSize : header.itemSize * others;
        otherStride = contiguous ? header.itemSize * rows : header.itemSize;
    }
    for (std::size_t other = 0; other < others; ++other)
        for (const Field& field : header.fields) {
            check_interrupt();
            result.columns.emplace_back();
            result.columns.back().name = field.name;
            load_column(data.data() + other * otherStride + field.offset, rows, rowStride, field,
                        result.columns.back());
        }
    return result;
}

} // namespace tessel::app
