// How --help reads.
#ifndef TESSEL_APP_HELP_FORMAT_H
#define TESSEL_APP_HELP_FORMAT_H

#include <CLI/CLI.hpp>

#include <string>
#include <utility>
#include <vector>

namespace tessel::app {

/// CLI11's form with a usage line of our own, without a list of positionals, and with one blank line between groups.
class HelpFormat : public CLI::Formatter
{
public:
    explicit HelpFormat(std::string usage) : usage_(std::move(usage)) { column_width(26); }

    std::string make_usage(const CLI::App*, std::string) const override { return "Usage: " + usage_ + "\n"; }
    std::string make_positionals(const CLI::App*) const override { return ""; }
    std::string make_group(std::string group, bool, std::vector<const CLI::Option*> options) const override
    {
        std::string text = "\n" + group + "\n";
        for (const CLI::Option* option : options)
            text += make_option(option, false);
        return text.substr(0, text.find_last_not_of('\n') + 1);
    }

private:
    std::string usage_;
};

} // namespace tessel::app

#endif
