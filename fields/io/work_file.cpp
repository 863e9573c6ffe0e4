#include "fields/io/work_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessel::fields {

namespace {

constexpr char kMagic[8] = {'T', 'e', 's', 's', 'e', 'l', 'W', 'F'};
constexpr std::uint64_t kVersion = 1;  // of the layout
constexpr std::size_t kTextsAt = 4096; // a length, a checksum, the texts
constexpr std::size_t kMostText = std::size_t(1) << 24;
constexpr std::size_t kMarksAt = kTextsAt + kMostText;

std::uint64_t checksum(const void* data, std::size_t bytes)
{
    // FNV-1a over words, with the high bits brought down.
    const char* const from = static_cast<const char*>(data);
    std::uint64_t sum = 0xcbf29ce484222325u ^ bytes;
    for (std::size_t k = 0; k < bytes; k += sizeof sum) {
        std::uint64_t word = 0;
        std::memcpy(&word, from + k, std::min(sizeof word, bytes - k));
        sum = (sum ^ word) * 0x100000001b3u;
        sum ^= sum >> 29;
    }
    return sum;
}

} // namespace

WorkFile::WorkFile(const std::string& path, const std::string& identity, std::size_t points, bool resume, Team& team)
    : path_(path), team_(team)
{
    header_.blocks = (points + kBlock - 1) / kBlock;
    written_.resize(header_.blocks);
    try {
        team_.agree(team_.rank() == 0 ? open(identity, resume) : "");
        team_.broadcast(&header_, sizeof header_);
        team_.broadcast(&resumed_, sizeof resumed_);
        std::string fault;
        if (team_.rank() != 0)
            descriptor_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
        if (descriptor_ < 0)
            fault = path_ + ": cannot be opened by all processes: " + std::strerror(errno);
        team_.agree(fault);
    } catch (const Error&) {
        if (descriptor_ >= 0)
            close(descriptor_);
        throw;
    }
}

WorkFile::~WorkFile()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}

/// Rank 0: finds what an earlier run left, or begins anew; says what hinders.
std::string WorkFile::open(const std::string& identity, bool resume)
{
    try {
        descriptor_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (descriptor_ < 0)
            return path_ + ": cannot be written: " + std::strerror(errno);
        if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            return path_ + ": another run works there";
        const std::uint64_t same = checksum(identity.data(), identity.size());
        Header found{};
        if (resume && read(&found, sizeof found, 0)) {
            if (std::memcmp(found.magic, kMagic, sizeof kMagic) != 0 || found.version != kVersion ||
                found.blocks != header_.blocks || found.identity != same)
                return path_ + ": belongs to another field, other options or another version: leave out --resume";
            header_ = found;
            read_texts();
            resumed_ = true;
            return "";
        }
        if (ftruncate(descriptor_, 0) != 0)
            return path_ + ": cannot be written: " + std::strerror(errno);
        std::memcpy(header_.magic, kMagic, sizeof kMagic);
        header_.version = kVersion;
        header_.identity = same;
        write(&header_, sizeof header_, 0);
        return "";
    } catch (const Error& error) {
        return error.what();
    }
}

void WorkFile::write(const void* data, std::size_t bytes, std::size_t at)
{
    const char* from = static_cast<const char*>(data);
    while (bytes > 0) {
        const ssize_t done = pwrite(descriptor_, from, bytes, static_cast<off_t>(at));
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            throw Error(path_ + ": cannot be written: " + std::strerror(done < 0 ? errno : ENOSPC));
        from += done;
        at += static_cast<std::size_t>(done);
        bytes -= static_cast<std::size_t>(done);
    }
}

/// Whether all bytes are there.
bool WorkFile::read(void* data, std::size_t bytes, std::size_t at) const
{
    char* to = static_cast<char*>(data);
    while (bytes > 0) {
        const ssize_t done = pread(descriptor_, to, bytes, static_cast<off_t>(at));
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        to += done;
        at += static_cast<std::size_t>(done);
        bytes -= static_cast<std::size_t>(done);
    }
    return true;
}

void WorkFile::remove()
{
    team_.any(false); // nobody reads any more
    if (team_.rank() == 0)
        unlink(path_.c_str());
}

void WorkFile::read_texts()
{
    std::uint64_t head[2] = {};
    if (!read(head, sizeof head, kTextsAt) || head[0] > kMostText)
        return;
    std::string all(head[0], '\0');
    if (!read(all.data(), all.size(), kTextsAt + sizeof head) || checksum(all.data(), all.size()) != head[1])
        return;
    // Name, text, name, text, each behind its length.
    std::vector<std::string> words;
    for (std::size_t at = 0; at + sizeof(std::uint64_t) <= all.size();) {
        std::uint64_t length = 0;
        std::memcpy(&length, all.data() + at, sizeof length);
        at += sizeof length;
        words.push_back(all.substr(at, length));
        at += length;
    }
    for (std::size_t k = 0; k + 1 < words.size(); k += 2)
        texts_[words[k]] = words[k + 1];
}

std::optional<std::string> WorkFile::text(const std::string& name)
{
    std::uint64_t length = 0; // one more than that of the text
    const auto found = texts_.find(name);
    if (found != texts_.end())
        length = found->second.size() + 1;
    team_.broadcast(&length, sizeof length);
    if (length == 0)
        return {};
    std::string result = found != texts_.end() ? found->second : std::string(length - 1, '\0');
    team_.broadcast(result.data(), result.size());
    return result;
}

void WorkFile::keep(const std::string& name, const std::string& text)
{
    texts_[name] = text;
    std::string all;
    for (const auto& [key, value] : texts_)
        for (const std::string& word : {key, value}) {
            const std::uint64_t length = word.size();
            all.append(reinterpret_cast<const char*>(&length), sizeof length).append(word);
        }
    if (all.size() + 16 > kMostText)
        throw Error(path_ + ": has no room for so many modes");
    const std::uint64_t head[2] = {all.size(), checksum(all.data(), all.size())};
    write(all.data(), all.size(), kTextsAt + sizeof head);
    write(head, sizeof head, kTextsAt);
}

void WorkFile::begin(const std::string& pass, std::size_t doubles)
{
    if (pass == std::string(header_.pass, strnlen(header_.pass, sizeof header_.pass)) && doubles == header_.doubles)
        return;
    team_.any(false); // nobody reads or writes any more
    written_.assign(header_.blocks, false);
    header_.doubles = doubles;
    std::memset(header_.pass, 0, sizeof header_.pass);
    pass.copy(header_.pass, sizeof header_.pass - 1);
    std::string fault;
    if (team_.rank() == 0)
        try {
            // What was there goes first: an end between the two leaves a pass without blocks.
            if (ftruncate(descriptor_, static_cast<off_t>(kMarksAt)) != 0 ||
                ftruncate(descriptor_, static_cast<off_t>(block_at(0))) != 0)
                throw Error(path_ + ": cannot be written: " + std::strerror(errno));
            write(&header_, sizeof header_, 0);
        } catch (const Error& error) {
            fault = error.what();
        }
    team_.agree(fault);
}

std::size_t WorkFile::mark_at(std::size_t block) const
{
    return kMarksAt + block * sizeof(Mark);
}

std::size_t WorkFile::block_at(std::size_t block) const
{
    const std::size_t first = (mark_at(header_.blocks) + 4095) / 4096 * 4096;
    return first + block * header_.doubles * sizeof(double);
}

bool WorkFile::has(std::size_t block)
{
    if (written_[block])
        return true;
    Mark mark{};
    if (!read(&mark, sizeof mark, mark_at(block)) || mark.count == 0 || mark.count > header_.doubles)
        return false;
    std::vector<double> values(mark.count);
    written_[block] = read(values.data(), values.size() * sizeof(double), block_at(block)) &&
                      checksum(values.data(), values.size() * sizeof(double)) == mark.checksum;
    return written_[block];
}

void WorkFile::put(std::size_t block, const double* values, std::size_t count)
{
    const std::size_t bytes = count * sizeof(double);
    write(values, bytes, block_at(block));
    const Mark mark{count, checksum(values, bytes)};
    write(&mark, sizeof mark, mark_at(block));
    written_[block] = true;
}

void WorkFile::get(std::size_t block, double* values, std::size_t count)
{
    Mark mark{};
    if (!read(&mark, sizeof mark, mark_at(block)) || mark.count != count ||
        !read(values, count * sizeof(double), block_at(block)) ||
        checksum(values, count * sizeof(double)) != mark.checksum)
        throw Error(path_ + ": was changed while it was in use");
}

} // namespace tessel::fields
