#pragma once
// The board's system log: takes what programs send to /dev/log, writes one line each to a file, and lets
// somebody wait for a text.
//
// A line is "SECONDS LEVEL TAG[PID]: TEXT", seconds since the board began, control characters as \n, \r,
// \xNN.

#include "check.h"
#include "loop.h"

#include <functional>
#include <list>
#include <string>

namespace lab {

class Syslog {
public:
    // Listens on socket_path from now on; lines are appended to file_path.
    Syslog(Loop &loop, const std::string &socket_path, const std::string &file_path);

    // Calls found once with the line that contains text: the first since the last forget_lines, or one to
    // come.
    void when_said(const std::string &text,
                   std::function<void(const std::string &line, Clock::time_point)> found);
    void forget_lines() { lines_.clear(); }
    void note(const std::string &text); // a line of the board's own

private:
    struct Line {
        Clock::time_point at;
        std::string text;
    };
    struct Waiter {
        std::string text;
        std::function<void(const std::string &, Clock::time_point)> found;
    };

    void receive();
    void take(const std::string &level, const std::string &text);

    UniqueFd socket_, file_;
    Clock::time_point began_ = Clock::now();
    std::list<Line> lines_;
    std::list<Waiter> waiters_;
};

} // namespace lab
