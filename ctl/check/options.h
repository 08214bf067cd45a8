// The options of the three packages: what each may be, and what becomes of it where it is something else.
#pragma once

#include "check/package.h"

namespace ctl {

constexpr const char *start_ends = "the start ends here";

// Who reads an option of a WAN.
enum reader : unsigned { by_static = 1, by_dhcp = 2, by_pppoe = 4, by_all = 7 };

// The protocol that a text means: a reader, or 0.
unsigned protocol_of(const char *text);

// The number that the daemon takes a text for.
int number_in(const char *text);
bool is_address(const char *text);
bool is_vlan(unsigned number);

// The options of a section that others depend on; null where they are missing.
struct beside {
    const char *proto;
    const char *ipaddr;
    const char *vlanid1;
};

// Whether the daemon's start ends at an option of an interface for its text alone.
bool ends_start(const char *option, const char *text, const beside &others, bool of_wan);

// Each option of a section, beside the table of its package. That an option ends the start is found here
// where its text alone decides it; what depends on others is found by the walk.
void check_lan_options(const section &which, findings &found);
void check_wan_options(const section &which, findings &found);
void check_route_options(const section &which, findings &found);

} // namespace ctl
