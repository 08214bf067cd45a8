// plan-case SEED FOLDER: lays the files of a random case, and prints its steps, an option and its value on a
// line.

#include "case.h"

#include <charconv>
#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    unsigned seed = 0;
    const char *const end = argc == 3 ? argv[1] + std::strlen(argv[1]) : nullptr;
    if (argc != 3 || std::from_chars(argv[1], end, seed).ptr != end) {
        std::fputs("usage: plan-case SEED FOLDER\n", stderr);
        return 2;
    }
    const model::Case one{seed};
    if (!one.write(argv[2])) {
        std::perror(argv[2]);
        return 1;
    }
    for (size_t i = 0; i + 1 < one.words.size(); i += 2) {
        std::printf("%s %s\n", one.words[i].c_str(), one.words[i + 1].c_str());
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
