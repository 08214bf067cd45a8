// What a client asks the supervisor to run: one member of a service's "instances" table.
//
// Types are strict: a field of another type is as good as absent. Honoured: command, env, respawn, netdev,
// pidfile, user, group, nice, term_timeout, reload_signal, error, data. Other fields (jails, limits,
// triggers) are accepted and have no effect here. stdout and stderr make no difference: the lab keeps all
// output.
#pragma once

#include "blob_copy.h"

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

// The part whose change makes a running instance restart.
struct InstanceConfig {
    std::vector<std::string> command;
    std::vector<std::pair<std::string, std::string>> env;
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
    bool sound = true; // false: something in the command or the limits is impossible

    bool startable() const { return sound && !command.empty() && errors.empty(); }
    bool operator==(const InstanceConfig &) const = default;
};

struct InstanceRequest {
    InstanceConfig config;
    BlobCopy data;
};

InstanceRequest parse_instance(const blob_attr *table);

} // namespace lab
