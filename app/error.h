// What keeps a record from being analysed, and what is wrong with a command line.
#ifndef TESSEL_APP_ERROR_H
#define TESSEL_APP_ERROR_H

#include <cstddef>
#include <stdexcept>
#include <string>

namespace tessel::app {

/// A file or one of its records cannot be used. The text is one line without the file's name.
class Error : public std::runtime_error
{
public:
    /// @param line  line of a text file, from 1; 0 if there is none to name
    explicit Error(const std::string& text, std::size_t line = 0) : std::runtime_error(text), line_(line) {}

    /// "FILE: text" or "FILE:LINE: text".
    std::string in(const std::string& file) const
    {
        return file + (line_ > 0 ? ":" + std::to_string(line_) : "") + ": " + what();
    }

private:
    std::size_t line_;
};

/// The command line means nothing.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The user asked to stop while a file was read.
class Interrupted : public std::exception
{};

/// 'word', cut to a length that fits on a line, without characters that a terminal would act on.
inline std::string quote(const std::string& word)
{
    std::string result(1, '\'');
    for (const char c : word.substr(0, 40))
        result += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
    return result + (word.size() > 40 ? "...'" : "'");
}

} // namespace tessel::app

#endif
