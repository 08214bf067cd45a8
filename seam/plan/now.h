// What this machine has now, read through the platform library and without changing anything.
#pragma once

#include "plan/inputs.h"

#include <array>

namespace seam::plan {

struct Now {
    std::array<bool, Hardware::front_ports> links{};
};

// Fills system and hardware of the world: devices, bridges, addresses, routes and rules of WANs, the route
// table of the daemon, chains, rows, clients, registers. Accounts are not read. False after a report.
bool read_now(Inputs &inputs, Now &now);

// The parts. Each gives 0 or an errno value.
int read_kernel(System &system);
int read_chains(System &system);
int read_rows(System &system);
int read_clients(System &system);
int read_switch(Hardware &hardware, Now &now);

// Whether two values of a fact say the same: a command line with other blanks, a rule with its words in
// another order. Kernel and supervisor do not give back what they were given, letter by letter.
bool same_value(const std::string &key, const std::string &a, const std::string &b);

// Of the world: whether a fact that is stated says no more than it has already.
bool says_the_same(const std::string &fact);

// What differs between two worlds, as it is stated in the later one.
std::vector<std::string> differences(const Facts &before, const Facts &after);

} // namespace seam::plan
