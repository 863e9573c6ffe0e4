#include "app/source.h"

#include "app/error.h"
#include "app/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace tessel::app {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kHdf5 = "\x89HDF\r\n\x1a\n"sv;
constexpr std::string_view kGzip = "\x1f\x8b"sv;

struct Kind
{
    std::string_view first;
    const char* is;
};

constexpr std::array kKinds{
    Kind{kHdf5, "an HDF5 file, which cannot be read through a pipe or gzip: unpack it and give its name"},
    Kind{"PK\x03\x04"sv, "a ZIP archive (.npz, .xlsx, ...): unpack it, or write text or .npy"},
    Kind{"\xd0\xcf\x11\xe0"sv, "a spreadsheet or document in binary: save it as text (CSV)"},
    Kind{"MATLAB 5.0 MAT-file"sv, "a MATLAB file: save it with -v7.3 (HDF5) or as text"},
    Kind{"CDF\x01"sv, "a classic netCDF file: write netCDF-4 (HDF5) or text"},
    Kind{"CDF\x02"sv, "a classic netCDF file: write netCDF-4 (HDF5) or text"},
    Kind{"\x28\xb5\x2f\xfd"sv, "zstd data: unpack it first, zstd -dc FILE | tessel-modes -"},
    Kind{"\xfd\x37zXZ"sv, "xz data: unpack it first, xz -dc FILE | tessel-modes -"},
    Kind{"BZh"sv, "bzip2 data: unpack it first, bzip2 -dc FILE | tessel-modes -"},
    Kind{"\x89PNG"sv, "a PNG picture, no record"},
    Kind{"\xff\xd8\xff"sv, "a JPEG picture, no record"},
    Kind{"%PDF-"sv, "a PDF document, no record"},
    Kind{"\x7f"
         "ELF"sv,
         "a program or a library, no record"},
};

constexpr const char* kUtf16 = "UTF-16 text: convert it, iconv -f UTF-16 -t UTF-8 FILE | tessel-modes -";

struct Descriptor
{
    int number = -1;
    ~Descriptor()
    {
        if (number > STDIN_FILENO)
            close(number);
    }
};

} // namespace

Source parse_source(const std::string& argument)
{
    struct stat status = {};
    const std::size_t colon = argument.rfind(':');
    if (argument == "-" || colon == argument.npos || colon == 0 || stat(argument.c_str(), &status) == 0)
        return {argument, {}};
    // The last colon with a path behind it; names of datasets may hold colons too.
    const std::size_t path = argument.find(":/");
    const std::size_t at = path != argument.npos && path > 0 ? path : colon;
    return {argument.substr(0, at), argument.substr(at + 1)};
}

bool is_hdf5(const std::string& file)
{
    if (file == "-")
        return false;
    struct stat status = {};
    const Descriptor descriptor{open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    if (descriptor.number < 0 || fstat(descriptor.number, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    // The signature stands at the start, or behind a user's block of 512 bytes or a power of two times that.
    std::array<char, kHdf5.size()> bytes;
    for (off_t at = 0; at < status.st_size; at = at == 0 ? 512 : 2 * at)
        if (pread(descriptor.number, bytes.data(), bytes.size(), at) == static_cast<ssize_t>(bytes.size()) &&
            std::string_view(bytes.data(), bytes.size()) == kHdf5)
            return true;
    return false;
}

std::string read_bytes(const std::string& file)
{
    const Descriptor descriptor{file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC)};
    if (descriptor.number < 0)
        throw Error(errno == ENOENT ? "there is no such file"
                                    : std::string("cannot be opened: ") + std::strerror(errno));
    struct stat status = {};
    if (fstat(descriptor.number, &status) == 0 && S_ISDIR(status.st_mode))
        throw Error("is a folder: give the files in it");

    std::string bytes;
    std::size_t used = 0;
    bytes.resize(
        std::max<std::size_t>(S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) + 1 : 0, 1 << 16));
    for (;;) {
        // A signal may come to another thread while this one waits.
        pollfd waiting{descriptor.number, POLLIN, 0};
        do
            check_interrupt();
        while (!S_ISREG(status.st_mode) && poll(&waiting, 1, 100) == 0);
        if (used == bytes.size())
            bytes.resize(2 * bytes.size());
        const ssize_t more =
            read(descriptor.number, bytes.data() + used, std::min<std::size_t>(bytes.size() - used, 1 << 24));
        if (more < 0 && errno != EINTR)
            throw Error(std::string("cannot be read: ") + std::strerror(errno));
        if (more == 0)
            break;
        used += more > 0 ? static_cast<std::size_t>(more) : 0;
    }
    check_interrupt();
    bytes.resize(used);
    if (bytes.empty())
        throw Error("is empty");
    return bytes.starts_with(kGzip) ? unpack_gzip(bytes) : bytes;
}

std::string unpack_gzip(std::string_view packed)
{
    z_stream stream = {};
    if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK)
        throw std::bad_alloc();
    const std::unique_ptr<z_stream, void (*)(z_stream*)> end(&stream, [](z_stream* s) { inflateEnd(s); });
    std::string bytes;
    std::size_t used = 0;
    bytes.resize(std::max<std::size_t>(4 * packed.size(), 1 << 16));
    for (;;) {
        check_interrupt();
        if (stream.avail_in == 0) {
            const std::size_t part = std::min<std::size_t>(packed.size(), 1 << 24);
            stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
            stream.avail_in = static_cast<uInt>(part);
            packed.remove_prefix(part);
        }
        if (used == bytes.size())
            bytes.resize(2 * bytes.size());
        const std::size_t room = std::min<std::size_t>(bytes.size() - used, 1 << 24);
        stream.next_out = reinterpret_cast<Bytef*>(bytes.data() + used);
        stream.avail_out = static_cast<uInt>(room);
        const int status = inflate(&stream, Z_NO_FLUSH);
        used += room - stream.avail_out;
        const bool more = stream.avail_in > 0 || !packed.empty();
        if (status == Z_STREAM_END) {
            if (!more)
                break;
            // Behind the end stands another part, or padding.
            if (inflateReset(&stream) != Z_OK || (stream.avail_in > 0 && *stream.next_in == 0))
                break;
        } else if (status == Z_BUF_ERROR && !more) {
            throw Error("the gzip data end early: the file was cut");
        } else if (status != Z_OK && status != Z_BUF_ERROR) {
            throw Error(std::string("the gzip data are damaged") + (stream.msg ? std::string(": ") + stream.msg : ""));
        }
    }
    bytes.resize(used);
    if (bytes.empty())
        throw Error("is empty inside gzip");
    return bytes;
}

void check_kind(std::string_view bytes)
{
    for (const Kind& kind : kKinds)
        if (bytes.starts_with(kind.first))
            throw Error(std::string("is ") + kind.is);
    if (bytes.starts_with("\xff\xfe") || bytes.starts_with("\xfe\xff"))
        throw Error(std::string("is ") + kUtf16);
    const std::string_view head = bytes.substr(0, 4096);
    std::size_t odd = 0, even = 0, control = 0;
    for (std::size_t k = 0; k < head.size(); ++k) {
        const auto c = static_cast<unsigned char>(head[k]);
        if (c == 0)
            ++(k % 2 == 0 ? even : odd);
        else if ((c < 0x20 && !std::isspace(c) && c != 0x1a) || c == 0x7f)
            ++control;
    }
    // Digits in UTF-16 have a zero in every other byte.
    if (std::max(odd, even) >= head.size() * 2 / 5 && std::min(odd, even) <= head.size() / 50)
        throw Error(std::string("is ") + kUtf16);
    if (odd + even > 0 || control > head.size() / 20)
        throw Error("holds binary data, no text, NumPy array (.npy) or HDF5");
}

} // namespace tessel::app
