// The command "uci" run as others run it.
#pragma once

#include <string>
#include <vector>

struct Finished {
    int status;
    std::string out;
    std::string err;
};

// What it writes goes through files of this folder; with another place for its standard output, `out` is
// empty.
Finished run_tool(const std::string &folder, std::vector<std::string> arguments,
                  const char *stdout_path = nullptr);
