// Child processes, temporary folders and control connections for tests. Everything is ended or removed by
// scope, and every wait has a deadline.
#pragma once

#include "unique_fd.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace lab_test {

inline constexpr int deadline_ms = 10'000;

class TempDir {
public:
    TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    ~TempDir();

    std::string operator/(const std::string &name) const { return path + "/" + name; }

private:
    std::string path;
};

std::string read_file(const std::string &path);

// Waits until the condition holds; false when the deadline passes first.
template <typename Condition> bool eventually(Condition condition);

class Process {
public:
    // Variables are NAME=VALUE, added to this process's environment. The child is killed with the test.
    Process(const std::vector<std::string> &command, const std::vector<std::string> &variables = {});
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    ~Process();

    // True when the child has written this line to standard output; keeps what else it wrote.
    bool wait_line(const std::string &line);
    // All output to its end, the exit status in `status` (128 + signal for a killed child; -1 past the
    // deadline).
    std::string finish(int &status);
    void send_signal(int number) const;
    int wait();
    pid_t id() const { return pid; }

private:
    pid_t pid = -1;
    lab::UniqueFd output;
    std::string text;
};

// One connection to a control socket.
class Connection {
public:
    explicit Connection(const std::string &path);

    bool open() const { return connected; }
    void write(const std::string &text);
    void end_writing(); // the answers can still be read
    // The next line without its end; what there is, when the peer ends or the deadline passes.
    std::string line();
    // Exactly this many bytes, or fewer likewise.
    std::string bytes(size_t count);
    bool ended(); // the peer has closed, and everything was read

    std::string ask(const std::string &command)
    {
        write(command + "\n");
        return line();
    }

private:
    lab::UniqueFd fd;
    bool connected = false;
    std::string text;
};

int64_t clock_ms();
void pause_ms(int milliseconds);

template <typename Condition> bool eventually(Condition condition)
{
    for (const int64_t end = clock_ms() + deadline_ms; clock_ms() < end; pause_ms(2)) {
        if (condition()) {
            return true;
        }
    }
    return condition();
}

} // namespace lab_test
