#include "app/apart.h"

#include "app/error.h"
#include "app/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <type_traits>

namespace tessel::app {

namespace {

constexpr rlim_t kSeconds = 600; // of the processor

/// What goes from the child to its parent, in its own order of bytes.
class Message
{
public:
    std::string bytes;

    template <class T>
    void put(const T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void put(const std::string& text)
    {
        put(text.size());
        bytes += text;
    }
    void put(const std::vector<double>& values)
    {
        put(values.size());
        bytes.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double));
    }
    void put(const Column& column)
    {
        put(column.name);
        put(column.real);
        put(column.imag);
        put(column.single);
    }

    template <class T>
    void get(T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        take(&value, sizeof value);
    }
    void get(std::string& text)
    {
        text.resize(count(1));
        take(text.data(), text.size());
    }
    void get(std::vector<double>& values)
    {
        values.resize(count(sizeof(double)));
        take(values.data(), values.size() * sizeof(double));
    }
    void get(Column& column)
    {
        get(column.name);
        get(column.real);
        get(column.imag);
        get(column.single);
    }

private:
    std::size_t count(std::size_t size)
    {
        std::size_t value = 0;
        get(value);
        if (value > (bytes.size() - at_) / size)
            throw Error("cannot be read: the file is damaged");
        return value;
    }
    void take(void* to, std::size_t size)
    {
        if (size > bytes.size() - at_)
            throw Error("cannot be read: the file is damaged");
        if (size > 0)
            std::memcpy(to, bytes.data() + at_, size);
        at_ += size;
    }

    std::size_t at_ = 0;
};

enum class Kind : char
{
    columns,
    error,
    memory
};

Message pack(const Columns& columns)
{
    Message message;
    message.put(Kind::columns);
    message.put(columns.columns.size());
    for (const Column& column : columns.columns)
        message.put(column);
    message.put(columns.spacing);
    message.put(columns.spacingFrom);
    message.put(columns.start);
    message.put(columns.unit.has_value());
    if (columns.unit) {
        message.put(columns.unit->name);
        message.put(columns.unit->exponent);
    }
    message.put(columns.times.has_value());
    if (columns.times)
        message.put(*columns.times);
    message.put(columns.notes.size());
    for (const std::string& note : columns.notes)
        message.put(note);
    return message;
}

Columns unpack(Message& message)
{
    Columns columns;
    std::size_t count = 0;
    bool there = false;
    message.get(count);
    for (; count > 0; --count)
        message.get(columns.columns.emplace_back());
    message.get(columns.spacing);
    message.get(columns.spacingFrom);
    message.get(columns.start);
    message.get(there);
    if (there) {
        columns.unit.emplace();
        message.get(columns.unit->name);
        message.get(columns.unit->exponent);
    }
    message.get(there);
    if (there)
        message.get(columns.times.emplace());
    message.get(count);
    for (; count > 0; --count)
        message.get(columns.notes.emplace_back());
    return columns;
}

/// The child: reads, sends, ends. Nothing that it prints is seen.
[[noreturn]] void run_child(const std::function<Columns()>& reader, int output)
{
    for (const int number : {SIGINT, SIGTERM})
        std::signal(number, SIG_DFL);
    const rlimit none{0, 0}, time{kSeconds, kSeconds + 5};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_CPU, &time);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    Message message;
    try {
        message = pack(reader());
    } catch (const std::bad_alloc&) {
        message.bytes.clear();
        message.put(Kind::memory);
    } catch (const std::exception& error) {
        message.bytes.clear();
        message.put(Kind::error);
        message.put(std::string(error.what()));
    }
    for (std::size_t sent = 0; sent < message.bytes.size();) {
        const ssize_t more = write(output, message.bytes.data() + sent, message.bytes.size() - sent);
        if (more < 0 && errno != EINTR)
            _exit(1);
        sent += more > 0 ? static_cast<std::size_t>(more) : 0;
    }
    _exit(0);
}

/// A child that is gone when this is.
struct Child
{
    pid_t id = -1;
    int pipe = -1;
    int status = 0;

    void wait()
    {
        while (id > 0 && waitpid(id, &status, 0) < 0 && errno == EINTR) {
        }
        id = -1;
    }
    ~Child()
    {
        if (pipe >= 0)
            close(pipe);
        if (id > 0)
            kill(id, SIGKILL);
        wait();
    }
};

} // namespace

Columns read_apart(const std::function<Columns()>& reader)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Error(std::string("cannot be read: ") + std::strerror(errno));
    Child child{fork(), ends[0]};
    if (child.id == 0)
        run_child(reader, ends[1]);
    close(ends[1]);
    if (child.id < 0)
        throw Error(std::string("cannot be read: ") + std::strerror(errno));

    Message message;
    std::size_t used = 0;
    for (;;) {
        pollfd waiting{child.pipe, POLLIN, 0};
        do
            check_interrupt();
        while (poll(&waiting, 1, 100) == 0);
        if (message.bytes.size() - used < 65536)
            message.bytes.resize(2 * message.bytes.size() + 65536);
        const ssize_t more = read(child.pipe, message.bytes.data() + used, message.bytes.size() - used);
        if (more == 0)
            break;
        used += more > 0 ? static_cast<std::size_t>(more) : 0;
    }
    message.bytes.resize(used);
    child.wait();
    check_interrupt();
    if (!WIFEXITED(child.status) || WEXITSTATUS(child.status) != 0)
        throw Error("cannot be read: the file is damaged");
    Kind kind = Kind::error;
    message.get(kind);
    if (kind == Kind::memory)
        throw std::bad_alloc();
    if (kind == Kind::columns)
        return unpack(message);
    std::string text;
    message.get(text);
    throw Error(text);
}

} // namespace tessel::app
