/*
 * iptables as the library finds it, with a record of every process of it.
 *
 * IptablesTest: A sandbox whose PATH begins with a command `iptables` that records its words in /tmp/runs,
 * and then is the real one. offer_stream() puts a program of many names in its place; the number of its last
 * process is in /tmp/last. runs() gives the command lines since it was called before.
 *
 * iptables_table(): A table as the system's own iptables lists it.
 */
#pragma once

#include "network.h"

#include <cstdlib>
#include <sstream>
#include <sys/stat.h>

using Lines = std::vector<std::string>;

inline std::string iptables_table(const std::string &name)
{
    Finished done = run_program({"/usr/sbin/iptables", "-w", "-t", name, "-S"});
    EXPECT_EQ(done.status, 0) << done.err;
    return done.out;
}

// Plays the program of many names, which is called by its own name here and so tells by the options which it
// is.
inline constexpr std::string_view program_of_many_names = R"(#!/bin/sh
echo "$*" >> /tmp/runs
echo $$ > /tmp/last
case "$*" in
*--noflush*) exec /usr/sbin/iptables-restore "$@" ;;
*) exec /usr/sbin/iptables "$@" ;;
esac
)";

// iptables as the library finds it, with a record of every process of it.
class IptablesTest : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        Finished probe = run_program({"/usr/sbin/iptables", "-w", "-t", "nat", "-S"});
        if (probe.status != 0) {
            GTEST_SKIP() << "iptables does not work here: " << probe.err;
        }
        write_file("/tmp/bin/iptables",
                   "#!/bin/sh\necho \"$*\" >> /tmp/runs\nexec /usr/sbin/iptables \"$@\"\n", 0755);
        write_file("/tmp/runs", "");
        setenv("PATH", "/tmp/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    }
    static void offer_stream(std::string_view program = program_of_many_names)
    {
        write_file("/tmp/bin/xtables-test-multi", program, 0755);
        unlink("/tmp/bin/iptables");
        ASSERT_EQ(symlink("xtables-test-multi", "/tmp/bin/iptables"), 0);
    }
    static std::vector<std::string> runs()
    {
        std::vector<std::string> lines;
        std::istringstream text(read_file("/tmp/runs"));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        write_file("/tmp/runs", "");
        return lines;
    }
};
