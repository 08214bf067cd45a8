// What this machine has now, read through the platform library and without changing anything.
#pragma once

#include "plan/inputs.h"

#include <array>
#include <map>
#include <set>
#include <string>

namespace seam::plan {

// What facts do not say.
struct Now {
    std::array<bool, Hardware::front_ports> links{};
    std::set<uint32_t> rules;                         // of WANs, by preference, and the one before them
    std::set<std::string> own_macs;                   // bridges with a MAC that none of their members has
    std::map<std::string, std::string> route_devices; // of the routes of the daemon
};

// Fills system and hardware of the world: devices, bridges, addresses, routes and rules of WANs, the route
// table of the daemon, chains, rows, clients, registers. Accounts are not read. False after a report.
bool read_now(Inputs &inputs, Now &now);

// The same from a file with a fact a line. False after a report.
bool read_facts(const std::string &path, Inputs &inputs, Now &now);

// The parts. Each gives 0 or an errno value.
int read_kernel(System &system, Now &now);
int read_chains(System &system);
int read_rows(System &system);
int read_clients(System &system);
int read_switch(Hardware &hardware, Now &now);

// Whether a device is of a kind that the daemon makes; another one may have such a name, too.
bool is_of_the_daemon(const std::string &kind);

// A route without the device that stands in it where one is named.
std::string without_device(const std::string &route);

// Whether two values of a fact say the same: a command line with other blanks, a rule with its words in
// another order, a route without its device. Kernel and supervisor do not give back what they were given,
// letter by letter.
bool same_value(const std::string &key, const std::string &a, const std::string &b);

// Of the world: whether a fact that is stated says no more than it has already.
bool says_the_same(const std::string &fact);

// What differs between two worlds, as it is stated in the later one.
std::vector<std::string> differences(const Facts &before, const Facts &after);

} // namespace seam::plan
