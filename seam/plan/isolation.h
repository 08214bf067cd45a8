// Which front ports reach which through the switch, and whether any do that should not.
//
// A port reaches another when there is a tag, or none, with which a frame that comes in on the one may go out
// of the other: a frame without a tag belongs to the port's PVID, the first entry of the table with a VLAN
// counts, and both must be members of it.
#pragma once

#include "world.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace seam::plan {

struct Reach {
    std::array<uint8_t, Hardware::front_ports> to{}; // bit n: port n

    // In either direction.
    bool joined(unsigned a, unsigned b) const { return ((to[a] >> b | to[b] >> a) & 1) != 0; }
    bool operator==(const Reach &) const = default;
};
Reach reach_of(const Hardware &hardware);
// "1-2 1-3 2-3"; "none reaches another".
std::string words_of(const Reach &reach);

// How it is from one register write on, up to the next of these.
struct ReachStep {
    unsigned write; // counted from 1 over the whole plan; 0 before the first
    Reach reach;
};

// Of a front port: what the board lets it serve, and what it serves.
struct Side {
    bool may_be_lan = false;
    bool may_be_wan = false;
    bool is_wan = false;
};
using Sides = std::array<Side, Hardware::front_ports>;

// Two ports that meet.
struct Meeting {
    unsigned a, b;
    bool lan_and_wan; // else two that are apart before and after
    unsigned write;   // the register write that joins them
    unsigned writes;  // for how many of them
    bool lasts;       // to the end of the phase
    // By the start's layout, which puts every port that may be a LAN's into the VLAN of LAN 1, until its
    // section takes it out.
    bool by_layout;
};

struct ReachPhase {
    const std::vector<ReachStep> &steps; // the first is what was before
    unsigned last_write;
    const Sides &before, &after;
    bool is_start;
};

// The meetings of one phase. A LAN and a WAN port shall not be joined, but for what was so while both served
// LANs, up to its end. Others shall not be that are apart both before and at the end, nor once more after
// they were parted.
std::vector<Meeting> meetings_of(const ReachPhase &phase);

} // namespace seam::plan
