// The options of the lab's programs, all of them long ones. -h and --help print the usage on standard output
// and end the program with 0; errors go to standard error, and end it with 2.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace lab {

class CommandLine {
public:
    // Both texts must outlive it; the usage ends with a line end.
    CommandLine(const char *program, const char *usage) : program_(program), usage_(usage) {}

    // What becomes of an option: its value is kept, a flag set or cleared, or a value handed on.
    void text(const char *name, std::string &to);
    void flag(const char *name, bool &to, bool value);
    void value(const char *name, std::function<void(const std::string &)> take);
    // Takes the options; true when there is nothing but options. Where words follow, getopt's optind is the first.
    bool parse(int argc, char **argv) const;
    [[noreturn]] void wrong(const char *text) const;

private:
    struct Option {
        const char *name;
        bool with_value;
        std::function<void(const std::string &)> take;
    };

    const char *program_;
    const char *usage_;
    std::vector<Option> options_;
};

} // namespace lab
