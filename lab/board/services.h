#pragma once
// The programs that make up the router, each under a short name: "switch", "broker", "siblings", "daemon".
// They are started, stopped and watched here; nothing restarts by itself, so that a test sees a death as it
// is.

#include "hosts.h"
#include "loop.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace lab {

class Services {
public:
    Services(Loop &loop, const Host &router) : loop_(loop), router_(router) {}

    // Makes a program known; its output goes to /var/log/NAME.log, or standard output to out when that is
    // given.
    void define(const std::string &name, std::vector<std::string> words,
                std::vector<std::string> environment);
    bool known(const std::string &name) const { return services_.count(name) != 0; }
    bool running(const std::string &name) const;
    // Throws when it is running already or cannot be started.
    void start(const std::string &name, int out = -1);
    // Sends a signal; false when it is not running.
    bool signal(const std::string &name, int signal);
    // Asks it to end (SIGTERM); done runs once it is gone, at once if it was not running.
    void stop(const std::string &name, std::function<void()> done);
    void on_end(std::function<void(const std::string &name, const std::string &how)> handler)
    {
        ended_ = std::move(handler);
    }
    std::optional<Clock::time_point> started(const std::string &name) const;
    // A line per program: NAME running PID, or NAME ended HOW, or NAME not started.
    std::string report() const;

private:
    struct Service {
        std::vector<std::string> words, environment;
        pid_t pid = 0;
        Clock::time_point begun;
        std::string how; // it ended, last time
        std::vector<std::function<void()>> waiting;
    };

    void gone(const std::string &name, int wait_status);

    Loop &loop_;
    const Host &router_;
    std::map<std::string, Service> services_;
    std::function<void(const std::string &, const std::string &)> ended_;
};

} // namespace lab
