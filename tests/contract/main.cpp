// The library under test keeps sockets, mappings and views for the life of its process, and a sandbox is
// never left: so each test gets a process of its own, also when the whole suite is run at once.
#include "../argv.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

class OneProcessEach : public testing::EmptyTestEventListener {
public:
    explicit OneProcessEach(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}

    void OnTestProgramStart(const testing::UnitTest &all) override
    {
        if (all.test_to_run_count() <= 1) {
            return;
        }
        int failed = 0;
        for (int s = 0; s < all.total_test_suite_count(); s++) {
            const testing::TestSuite &suite = *all.GetTestSuite(s);
            for (int t = 0; t < suite.total_test_count(); t++) {
                const testing::TestInfo &test = *suite.GetTestInfo(t);
                if (test.should_run() && !passes(std::string(suite.name()) + "." + test.name())) {
                    fprintf(stderr, "FAILED: %s.%s\n", suite.name(), test.name());
                    failed++;
                }
            }
        }
        printf("%d tests, %d failed\n", all.test_to_run_count(), failed);
        fflush(stdout);
        _exit(failed == 0 ? 0 : 1);
    }

private:
    bool passes(const std::string &name)
    {
        std::vector<std::string> arguments = arguments_;
        arguments.push_back("--gtest_filter=" + name);
        const std::vector<char *> words = argv_of(arguments);
        fflush(stdout);
        pid_t child = fork();
        if (child == 0) {
            execv("/proc/self/exe", words.data());
            _exit(127);
        }
        int state = 1;
        while (waitpid(child, &state, 0) < 0 && errno == EINTR) {
        }
        return WIFEXITED(state) && WEXITSTATUS(state) == 0;
    }

    std::vector<std::string> arguments_;
};

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> arguments(argv, argv + argc);
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new OneProcessEach(std::move(arguments)));
    return RUN_ALL_TESTS();
}
