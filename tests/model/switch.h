// The switch as people think of it: a table of VLANs, each a number and a set of ports, and the VLAN that
// each port puts untagged frames into. Knows no registers.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace model {

inline constexpr unsigned front_ports = 5;
inline constexpr unsigned table_size = 16;
inline constexpr unsigned first_free_entry = 5;
inline constexpr unsigned first_cpu_port = 6;
inline constexpr int bad_argument = -2;

constexpr unsigned port_vlan(unsigned port)
{
    return 4090 + port;
}

struct Vlan {
    unsigned vid = 0;
    std::set<unsigned> members;
    bool operator==(const Vlan &) const = default;
};

using PortPair = std::pair<unsigned, unsigned>; // the lower number first
using PortPairs = std::set<PortPair>;

struct Switch {
    std::array<Vlan, table_size> table;
    std::array<unsigned, front_ports> pvid{};
    bool port_vlans_untagged = false;

    // In the entry of that number.
    void join_entry(unsigned index, unsigned vid, unsigned port);
    void leave_entry(unsigned index, unsigned vid, unsigned port);
    // In the entry that has the VLAN, or a free one. 0 or an error.
    int join(unsigned vid, unsigned port);
    int leave(unsigned vid, unsigned port);

    // The VLAN that a frame belongs to that comes in on a port with this tag (0: none), if the port takes
    // part.
    std::optional<unsigned> entry_of(unsigned port, unsigned tag) const;
    // Front ports of which a frame of one comes out of the other, with any tag or none.
    PortPairs joined() const;
    std::string picture() const;
};

} // namespace model
