#include "daemon_world.h"

#include "board/board_map.h"
#include "core/bus_objects.h"
#include "daemon_test.h"
#include "double.h"
#include "input.h"
#include "platform/output.h"

#include <cstring>
#include <gtest/gtest.h>

namespace fuzz {

namespace {

// What the double finds wrong is a broken promise too.
void double_strict()
{
    static const bool once = [] {
        testing::GTEST_FLAG(break_on_failure) = true;
        return true;
    }();
    promise(once, "set once");
}

} // namespace

void daemon_fresh(bool two_cpu_ports)
{
    double_strict();
    unit::registry_drop();
    unit::routes_drop();
    unit::double_reset();
    g_netd_dbg_shm = nullptr;
    unit::world.packages = {"lan_intf", "wan_intf", "route_config", "dhcp"};
    const unit::Ports ports = two_cpu_ports ? unit::Ports{{1, 1}, {1, 2}, {2, 3}, {2, 4}, {2, 0}}
                                            : unit::Ports{{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}};
    for (size_t i = 0; i < ports.size(); i++) {
        unit::world.ports.at(i) = ports[i];
    }
    unit::world.cpuid = two_cpu_ports ? unit::two_cpu_ports : 1;
    promise(netbd_lan_wan_init() == 0 && netintf_registry_init() == 0 && ivarode_ubus_init() == 0,
            "the daemon starts");
    unit::trace_take();
}

void daemon_check()
{
    promise(unit::open_handles() == 0, "no socket, file or database is left open");
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        const netintf_entry *head = netintf_port_head_get(port);
        for (const netintf_entry *entry = head; entry->next != head; entry = entry->next) {
            const netintf_entry *next = entry->next;
            promise(next->prev == entry, "lists are rings in both directions");
            promise(next->hw_port == port, "a record is on the list of its port");
            promise(next->intf_type == intf_type_lan || next->intf_type == intf_type_wan,
                    "a record is a LAN or a WAN");
            promise(memchr(next->name, '\0', sizeof(next->name)) != nullptr, "a name has an end");
        }
        promise(head->prev->next == head, "lists are rings in both directions");
    }
}

} // namespace fuzz
