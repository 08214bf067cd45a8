/*
 * A private place for one contract test.
 *
 * Sandbox: Puts the calling process into fresh mount, network and IPC namespaces and gives it empty /etc,
 * /run (and so /var/run), /tmp, /dev/shm and /var/log, and a loopback device that is up. /etc keeps what
 * programs need to start (alternatives, the loader's cache, user and protocol names); the build folder stays
 * where it was even if it lies below one of these. Never left again: main.cpp gives each test its process.
 * Where the kernel or the rights do not allow it, ready() is false and why_not() tells the reason.
 *
 * SandboxTest: A Sandbox, and the test skipped with the reason when there is none.
 *
 * StderrCapture: Collects what the process writes to descriptor 2 while it lives.
 */
#pragma once

// g++ 12 sees overlapping copies in joined std::strings where there are none (its bug 105651).
#pragma GCC diagnostic ignored "-Wrestrict"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

class Sandbox {
public:
    Sandbox();
    bool ready() const { return why_not_.empty(); }
    const std::string &why_not() const { return why_not_; }

private:
    std::string why_not_;
};

class SandboxTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!sandbox_.ready()) {
            GTEST_SKIP() << sandbox_.why_not();
        }
    }

private:
    Sandbox sandbox_;
};

class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;
    // Everything written so far; may be asked again.
    std::string text() const;

private:
    int saved_ = -1;
    int file_ = -1;
};

// Whole file; fails the test when it cannot be read.
std::string read_file(const std::string &path);
// Makes missing parent directories; replaces the file.
void write_file(const std::string &path, std::string_view text, mode_t mode = 0644);
bool file_exists(const std::string &path);
// Folder of the programs built with this test ("…/bin").
std::string program_folder();

struct Finished {
    int status;      // exit status, or 128 + the signal
    std::string out; // standard output
    std::string err; // standard error
};
// Runs a program (argv[0] is its path) to its end.
Finished run_program(const std::vector<std::string> &argv);
