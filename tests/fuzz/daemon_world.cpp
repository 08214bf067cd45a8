#include "daemon_world.h"

#include "daemon.h"
#include "input.h"
#include "process.h"

#include <cstring>

namespace fuzz {

void daemon_fresh(bool two_cpu_ports)
{
    const inprocess::Board one{{{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}}};
    const inprocess::Board two{{{1, 1}, {1, 2}, {2, 3}, {2, 4}, {2, 0}}, inprocess::two_cpu_ports};
    promise(inprocess::daemon_begin(two_cpu_ports ? two : one), "the daemon starts");
}

void daemon_check()
{
    promise(seam::process.left_open().empty(), "no socket, file or database is left open");
    promise(seam::process.misused == 0, "nothing closed is used, and requests alone are answered");
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
