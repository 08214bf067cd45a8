// The board file: which front port is which LAN or WAN, by the numbers that the daemon gives them.

#include "platform/board.h"

#include "facts/router.h"

namespace ctl {

namespace {

constexpr uint32_t ether_count = 16;
constexpr uint8_t lan_role = 1;
constexpr uint8_t wan_role = 2;

void append_served(json_object *to, uint32_t number, const netbd_ether &ether)
{
    json_object *made = append_table(to);
    put_number(made, "number", number);
    put_number(made, "port", ether.hw_port);
}

} // namespace

void add_board(json_object *facts)
{
    if (sys_bdinfo_init() != 0) {
        note_unread(facts, "the board file cannot be used: which port is which LAN or WAN is not known");
        return;
    }
    json_object *made = put_table(facts, "board");
    const uint8_t *mac = sys_bdinfo_macbase_get();
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    put(made, "mac", text);
    constexpr uint32_t two_cpu_ports = 0xc7a6e2d1;
    put_number(made, "cpu_ports", sys_bdinfo_cpuid_get() == two_cpu_ports ? 2 : 1);
    json_object *lans = put_list(made, "lans");
    json_object *wans = put_list(made, "wans");
    uint32_t wan = 0;
    for (uint32_t i = 0; i < ether_count; ++i) {
        const netbd_ether *ether = sys_bdinfo_ether_get(i);
        if (ether != nullptr && (ether->role & lan_role) != 0) {
            append_served(lans, i + 1, *ether);
        }
        // WANs count from the other end.
        ether = sys_bdinfo_ether_get(ether_count - 1 - i);
        if (ether != nullptr && (ether->role & wan_role) != 0) {
            append_served(wans, ++wan, *ether);
        }
    }
}

} // namespace ctl
