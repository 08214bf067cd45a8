// The command line of ivarode-plan.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace seam::plan {

// What is to happen after the start, in the order of the command line.
struct Step {
    enum class Kind { call, link, address };
    Kind kind;
    std::string said;                                   // as a person says it
    std::string object = {}, method = {}, message = {}; // of a call; the message in JSON
    unsigned port = 0;                                  // of a link
    bool up = false;
    uint32_t address = 0; // in host byte order
};

struct Options {
    std::string board = "/etc/board.json";
    std::string config = "/etc/config";
    std::string daemon; // empty: the one beside this program
    std::vector<Step> steps;
    bool from_now = false;
    std::string from_file; // of facts
    bool diff = false;
    bool leftovers = false;
    bool json = false;
    bool quiet = false;
    bool help = false;
};

extern const char *const help_text;

// False after a report on standard error.
bool read_options(int argc, char **argv, Options &options);

// A line on standard error: "ivarode-plan: text".
void complain(const std::string &text);

} // namespace seam::plan
