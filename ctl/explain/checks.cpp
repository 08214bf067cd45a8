// The table of checks. A check stands behind those that it depends on.

#include "explain/explain.h"

namespace ctl {

constexpr unsigned framed = an_interface | a_port;
constexpr unsigned switched = an_interface | an_uplink;

const check checks[] = {
    {"section", an_interface, false, look_section},
    {"options", an_interface, false, look_options},
    {"board", an_interface, false, look_number_of_board},
    {"section", a_route, false, look_route_section},
    {"account", an_account, false, look_account},
    {"process", an_interface | a_route, false, look_process},
    {"own port", an_interface, false, look_port_own},
    {"cable", framed, true, look_cable},
    {"PVID", framed, false, look_pvid},
    {"VLAN entry", framed, false, look_entry},
    {"VLAN entry to the CPU", framed, false, look_entry_cpu},
    {"untagging", framed, false, look_untagged},
    {"CPU device", an_interface, false, look_cpu_device},
    {"VLAN device", an_interface, false, look_vlan_device},
    {"bridge", an_interface, false, look_bridge},
    {"member", an_interface, false, look_member},
    {"enabled", an_uplink, true, look_enabled},
    {"up", an_interface, false, look_up},
    {"number", an_uplink, false, look_number},
    {"supervisor", an_uplink, false, look_supervisor},
    {"client", an_uplink, false, look_client},
    {"address", an_interface, false, look_address},
    {"row", an_uplink, false, look_row},
    {"default route", an_uplink, false, look_way_out},
    {"policy rule", an_uplink, false, look_rule},
    {"other WANs", an_uplink, false, look_in_front},
    {"enabled", a_route, true, look_route_enabled},
    {"hidden", a_route, false, look_route_hidden},
    {"gateway", a_route, false, look_route_gateway},
    {"installed", a_route, false, look_route_installed},
    {"policy rule", a_route, false, look_route_rule},
    {"rules before", an_uplink, false, look_rules_before},
    {"firewall chains", switched | a_route, false, look_skeleton},
    {"firewall rules", switched | a_route, false, look_rules_of_chains},
    {"forwarding", switched | a_route, false, look_forwarding},
    {"resolver", an_uplink, false, look_resolver},
    {"provider", an_account, false, look_account_provider},
    {"broker", switched | a_route | an_account, false, look_broker},
    {"sibling", switched, false, look_sibling},
    {"daemon", switched | a_route | an_account, false, look_answer},
};

const size_t check_count = sizeof(checks) / sizeof(checks[0]);

} // namespace ctl
