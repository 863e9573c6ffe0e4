#include "examples/resonator/files.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace resonator {

File::File(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "w"), std::fclose)
{
    if (!file_)
        fail();
}

void File::print(const char* format, ...)
{
    std::va_list values;
    va_start(values, format);
    std::vfprintf(file_.get(), format, values);
    va_end(values);
}

void File::finish()
{
    if (std::fflush(file_.get()) != 0 || std::ferror(file_.get()))
        fail();
}

void File::fail() const
{
    throw std::runtime_error(path_ + ": cannot be written: " + std::strerror(errno));
}

void make_folder(const std::string& prefix)
{
    const auto folder = std::filesystem::path(prefix).parent_path();
    std::error_code status;
    if (!folder.empty())
        std::filesystem::create_directories(folder, status);
    if (status)
        throw std::runtime_error(folder.string() + ": cannot be made: " + status.message());
}

std::string run_program(std::vector<std::string> words, const std::string& output)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!output.empty())
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    pid_t child = 0;
    const int fault = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (fault != 0)
        return words[0] + ": " + std::strerror(fault);
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return words[0] + ": " + std::strerror(errno);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : words[0] + " failed";
}

std::string draw(const std::string& name, const std::string& prefix)
{
    std::error_code ignored;
    const std::string script = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / name;
    const std::string hindrance = std::filesystem::exists(script, ignored)
                                      ? run_program({"gnuplot", "-c", script, prefix})
                                      : script + " is missing";
    return hindrance.empty() ? "" : "no picture: " + hindrance;
}

void progress(const std::string& text)
{
    static const bool watched = isatty(STDERR_FILENO) != 0;
    if (watched)
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
}

void finish_output()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) // such as a full disk
        throw std::runtime_error(std::string("standard output: cannot be written: ") + std::strerror(errno));
}

} // namespace resonator
