#include "tool.h"

#include "../../argv.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string slurp(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

Finished run_tool(const std::string &folder, std::vector<std::string> arguments, const char *stdout_path)
{
    const std::string out = stdout_path ? stdout_path : folder + "/out";
    const std::string err = folder + "/err";
    arguments.insert(arguments.begin(), "uci");
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int written = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(), written, 0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err.c_str(), written, 0600);
    pid_t child = -1;
    const int refused = posix_spawn(&child, UCI_TOOL, &files, nullptr, argv_of(arguments).data(), environ);
    posix_spawn_file_actions_destroy(&files);
    EXPECT_EQ(0, refused);
    int state = -1;
    EXPECT_EQ(child, waitpid(child, &state, 0));
    EXPECT_TRUE(WIFEXITED(state));
    return {WEXITSTATUS(state), stdout_path ? "" : slurp(out), slurp(err)};
}
