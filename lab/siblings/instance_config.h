// What a client asks the supervisor to run: one member of a service's "instances" table.
//
// Types are strict: a field of another type is as good as absent. Honoured: command, env, respawn, netdev,
// pidfile, user, group, nice, limits, term_timeout, reload_signal, error, data, jail; capabilities,
// no_new_privs and seccomp in a jail alone. Other fields (name spaces of jails, triggers) are accepted and
// have no effect here. stdout and stderr make no difference: the lab keeps all output.
#pragma once

#include "blob_copy.h"

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lab {

struct Respawn {
    int threshold = 3600; // seconds a process must live for its exit not to count as a crash
    int timeout = 5;      // seconds before it is started again
    int retry = 5;        // crashes in a row before it is given up; 0: never

    bool operator==(const Respawn &) const = default;
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Jail {
    std::string name;
    std::vector<bool> options; // in the order of jail_options

    bool operator==(const Jail &) const = default;
};
inline constexpr std::array<const char *, 9> jail_options = {
    "procfs", "sysfs", "ubus", "log", "ronly", "netns", "userns", "cgroupsns", "console"};

// The part whose change makes a running instance restart.
struct InstanceConfig {
    std::vector<std::string> command;
    Pairs env;
    Pairs limits; // "SOFT HARD", or one word for both
    std::optional<Respawn> respawn;
    std::vector<std::string> netdev;
    std::vector<unsigned> netdev_index; // kernel indices of netdev at the time of asking
    std::vector<std::string> errors;
    std::string pidfile;
    std::string user;
    std::string group;
    int nice = 0;
    int term_timeout = 5; // seconds between SIGTERM and SIGKILL
    int reload_signal = 0;
    std::optional<Jail> jail;
    std::string capabilities; // a file that lists them
    bool no_new_privs = false;
    std::string seccomp; // a file that lists the calls of the kernel
    bool sound = true;   // false: there can be no such instance

    bool startable() const { return !command.empty() && errors.empty(); }
    bool operator==(const InstanceConfig &) const = default;
};

struct InstanceRequest {
    InstanceConfig config;
    BlobCopy data;
};

InstanceRequest parse_instance(const blob_attr *table);

} // namespace lab
