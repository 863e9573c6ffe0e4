// Fuzz targets of the command: what reads text, .npy files and the command line. Whatever the bytes, there is a result
// or one line that says what hinders.
#include "app/error.h"
#include "app/npy.h"
#include "app/number.h"
#include "app/options.h"
#include "app/records.h"
#include "app/source.h"
#include "app/text.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

using namespace tessel::app;

namespace {

void require(bool held)
{
    if (!held)
        std::abort();
}

/// The first byte chooses options.
Options options_of(std::uint8_t choice)
{
    Options options;
    if (choice & 1)
        options.spacing = Quantity{0.5, {}};
    if (choice & 2)
        options.columns = {"2"};
    if (choice & 4)
        options.complexPairs = true;
    if (choice & 8)
        options.unit = TimeUnit{"steps", {}};
    if (choice & 16)
        options.axis = choice >> 5 & 1;
    return options;
}

void check_line(const char* text)
{
    require(std::string(text).find('\n') == std::string::npos);
}

void check_records(const std::vector<Record>& records)
{
    require(!records.empty());
    for (const Record& record : records) {
        require(record.size() > 0 && record.spacing > 0 && std::isfinite(record.start));
        require(std::all_of(record.real.begin(), record.real.end(), [](double v) { return std::isfinite(v); }));
    }
}

[[maybe_unused]] void fuzz_text(const std::string& bytes, const Options& options)
{
    check_kind(bytes);
    check_records(make_records(read_text(bytes), "file", options));
}

[[maybe_unused]] void fuzz_npy(const std::string& bytes, const Options& options)
{
    const std::string file = "\x93NUMPY" + bytes;
    check_records(make_records(read_npy(file, options.axis), "file", options));
}

[[maybe_unused]] void fuzz_options(const std::string& bytes, const Options&)
{
    std::vector<std::string> words;
    for (std::size_t from = 0; from <= bytes.size();) {
        const std::size_t to = std::min(bytes.find('\n', from), bytes.size());
        words.push_back(bytes.substr(from, to - from));
        from = to + 1;
    }
    const CommandLine line = parse_command_line(words);
    const Options& options = line.options;
    require(line.text || !options.files.empty());
    if (options.spacing) {
        const std::string form = short_form(options.spacing->value, options.noise.value_or(0));
        require(!form.empty() && point_of(form) <= form.size());
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    try {
        TESSEL_READER({reinterpret_cast<const char*>(data) + 1, size - 1}, options_of(*data));
    } catch (const Error& error) {
        check_line(error.what());
    } catch (const UsageError& error) {
        check_line(error.what());
    }
    return 0;
}
