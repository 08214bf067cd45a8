// Goes through saved inputs, each a file; folders stand for the files in them. Also tries the empty input and
// every input cut in the middle. Fails when there is nothing to go through.
#include "input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::filesystem::path> files_of(const std::filesystem::path &path)
{
    if (!std::filesystem::is_directory(path)) {
        return {path};
    }
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// In memory of its exact size, so that a sanitizer sees a read behind its end.
void try_bytes(const std::string &bytes, size_t size)
{
    std::vector<uint8_t> exact(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    exact.reserve(1); // an empty input has an address too
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

} // namespace

int main(int argc, char **argv)
{
    unsigned files = 0;
    unsigned executions = 0;
    for (int i = 1; i < argc; i++) {
        for (const std::filesystem::path &file : files_of(argv[i])) {
            std::ifstream stream(file, std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
            if (!stream.good() && !stream.eof()) {
                std::fprintf(stderr, "cannot read %s\n", file.c_str());
                return 1;
            }
            try_bytes(bytes, bytes.size());
            try_bytes(bytes, bytes.size() / 2);
            files++;
            executions += 2;
        }
    }
    try_bytes({}, 0);
    executions++;
    std::printf("executions: %u\n", executions);
    return files > 0 ? 0 : 1;
}
