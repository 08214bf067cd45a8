// The start as far as it depends on several options, sections and the board at once: ports, VLANs, devices
// and bridges, in the order in which the daemon makes them.
#pragma once

#include "check/board.h"
#include "check/package.h"

namespace ctl {

class start_walk {
public:
    start_walk(const board_facts &board, findings &found)
        : board_(board), found_(found), devices_(table()), vlans_(table())
    {}

    void lan(const section &which) { take(which, "lan", board_.lan_port, 0); }
    void wan(const section &which);

private:
    void take(const section &which, const char *kind, const int (&ports)[16], unsigned protocol);
    int port_of(const section &which, const int (&ports)[16]);
    bool takes_vlan(const section &which, const char *carrier, char *device);
    bool has_room_for(unsigned vid);
    bool make(const place &where, const char *device);
    bool join(const place &where, const char *bridge, const char *member);
    void address(const section &which);

    const board_facts &board_;
    findings &found_;
    json devices_; // name: the bridge that it is in
    json vlans_;
};

} // namespace ctl
