// The words of a command as exec and its like take them.
#pragma once

#include <string>
#include <vector>

// Ends with a null pointer; points into the words.
inline std::vector<char *> argv_of(const std::vector<std::string> &words)
{
    std::vector<char *> argv;
    for (const std::string &word : words) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);
    return argv;
}
