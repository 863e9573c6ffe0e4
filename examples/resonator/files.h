#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace resonator {

/// A file of text that is being written; errors are reported when it is finished, and name it.
class File
{
public:
    explicit File(const std::string& path);
    [[gnu::format(printf, 2, 3)]] void print(const char* format, ...);
    void finish();

private:
    [[noreturn]] void fail() const;

    std::string path_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

/// Makes the folder for files of this prefix, if necessary. Throws if it cannot.
void make_folder(const std::string& prefix);

/// Runs a program that is found as a shell finds it; what it prints goes to the file of that name, if there is one.
/// Returns the reason in one line if it fails.
std::string run_program(std::vector<std::string> words, const std::string& output = "");

/// Draws pictures by the gnuplot script of that name beside this program. Returns the reason in one line if that fails.
std::string draw(const std::string& script, const std::string& prefix);

/// Prints the current step on a terminal, over the previous one; nothing clears the line.
void progress(const std::string& text);

/// Throws if standard output has not taken everything.
void finish_output();

} // namespace resonator
