#pragma once
// The places where commands run: the router and the hosts around it, each with its own network, mount and
// host name spaces below the board's own. A Host keeps them alive by descriptors; no process need live in it.

#include "check.h"

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace lab {

class Host {
public:
    // The place where the caller itself is.
    static Host here(const std::string &name);
    // New name spaces; prepare runs once inside, in a separate process.
    static Host create(const std::string &name, const std::function<void()> &prepare);

    const std::string &name() const { return name_; }
    int net() const { return net_.get(); }
    // Moves the calling process into this place.
    void enter() const;

    std::vector<std::string> environment; // NAME=VALUE, beside the common ones

private:
    std::string name_;
    UniqueFd net_, mount_, uts_, root_;
};

struct Command {
    std::vector<std::string> words;
    std::vector<std::string> environment; // beside the host's
    int in = -1, out = -1, err = -1;      // -1: /dev/null
    bool own_group = true;                // leader of a new session, so that all of it can be killed
};

// Starts a command in a host; the program is looked for in the board's search path. Returns the process id.
pid_t spawn(const Host &host, const Command &command);

struct Outcome {
    int wait_status = 0;
    std::string output; // standard output and error together
    bool ok() const { return wait_status == 0; }
};

// Runs a command to its end, feeding input; only while the board is being set up, because it blocks.
Outcome run_now(const Host &host, const std::vector<std::string> &words, const std::string &input = {});
// The same, throwing an error with the command and its output when it fails.
void must_run(const Host &host, const std::vector<std::string> &words, const std::string &input = {});

constexpr const char *applets_path = "/usr/lib/applets";
constexpr const char *search_path = "/usr/sbin:/usr/bin:/sbin:/bin:/usr/lib/applets";

} // namespace lab
