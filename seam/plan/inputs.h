// Board file and configuration, read by the code that reads them for the daemon.
#pragma once

#include "world.h"

#include <string>

namespace seam::plan {

struct Inputs {
    World world; // what the daemon only reads of it

    // "LAN 2" and "WAN 1": what a front port serves, as numbers count on a board.
    std::string serves(unsigned port) const;
    bool is_known(unsigned port) const { return role(port) != 0; }
    // Of platform/board.h: LAN, WAN, or both bits; 0 for a port that the board does not name.
    unsigned role(unsigned port) const;
};

// Everything that there is in the world, of system and hardware.
Facts facts_of_world();

// False after a report on standard error. A package that is not there is none of the world's; one that is
// there must be readable.
bool read_board(const std::string &file, Inputs &inputs);
bool read_config(const std::string &folder, Inputs &inputs);

} // namespace seam::plan
