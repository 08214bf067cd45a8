#include "daemon.h"

#include "board/board_map.h"
#include "call.h"
#include "core/bus_objects.h"
#include "netintf/registry.h"
#include "netintf/reply.h"
#include "process.h"
#include "route/table.h"

#include <algorithm>
#include <cstdlib>

namespace inprocess {
namespace {

void registry_drop()
{
    for (uint32_t port = 0; netintf_registry != nullptr && port < netintf_port_count; port++) {
        netintf_entry *head = &netintf_registry[port];
        for (netintf_entry *entry = head->next; entry != head;) {
            netintf_entry *next = entry->next;
            std::free(entry);
            entry = next;
        }
    }
    std::free(netintf_registry);
    netintf_registry = nullptr;
    netintf_lan_port_mask = 0;
    netintf_wan_port_mask = 0;
}

void routes_drop()
{
    const list_head *head = &route_cfg_list_get().head;
    while (head->next != head) {
        route_cfg_entry *entry = list_entry(head->next, route_cfg_entry, links);
        list_del(&entry->links);
        std::free(entry);
    }
}

} // namespace

bool daemon_begin(const Board &board)
{
    seam::begin_in_process();
    std::copy(board.ports.begin(), board.ports.end(), seam::world.ports.begin());
    seam::world.cpu = board.cpu;
    seam::world.mac = board.mac;
    seam::world.packages = {"lan_intf", "wan_intf", "route_config", "dhcp"};
    return netbd_lan_wan_init() == 0 && daemon_restart();
}

void daemon_end()
{
    registry_drop();
    routes_drop();
    blob_buf_free(&netintf_reply);
    netintf_reply = {};
}

bool daemon_restart()
{
    daemon_end();
    const bool started = netintf_registry_init() == 0 && ivarode_ubus_init() == 0;
    seam::trace_take();
    return started;
}

} // namespace inprocess
