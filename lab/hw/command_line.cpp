#include "command_line.h"

#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <utility>

namespace lab {

void CommandLine::text(const char *name, std::string &to)
{
    value(name, [&to](const std::string &given) { to = given; });
}

void CommandLine::flag(const char *name, bool &to, bool value)
{
    options_.push_back({name, false, [&to, value](const std::string &) { to = value; }});
}

void CommandLine::value(const char *name, std::function<void(const std::string &)> take)
{
    options_.push_back({name, true, std::move(take)});
}

bool CommandLine::parse(int argc, char **argv) const
{
    // Options are distinguished by their places in the list, below every letter.
    std::vector<option> known;
    known.reserve(options_.size() + 2);
    for (const Option &one : options_) {
        known.push_back({one.name, one.with_value ? required_argument : no_argument, nullptr,
                         static_cast<int>(known.size())});
    }
    known.push_back({"help", no_argument, nullptr, 'h'});
    known.push_back({nullptr, 0, nullptr, 0});
    for (int choice = 0; (choice = getopt_long(argc, argv, "h", known.data(), nullptr)) >= 0;) {
        if (choice == 'h') {
            fputs(usage_, stdout);
            exit(0);
        }
        if (choice == '?') {
            fputs(usage_, stderr);
            exit(2);
        }
        options_.at(static_cast<size_t>(choice)).take(optarg != nullptr ? optarg : "");
    }
    return optind == argc;
}

void CommandLine::wrong(const char *text) const
{
    fprintf(stderr, "%s: %s\n%s", program_, text, usage_);
    exit(2);
}

} // namespace lab
