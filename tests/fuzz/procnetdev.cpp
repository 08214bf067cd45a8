// The kernel's table of counters, read twice by the statistics timer. Rates follow from the counters,
// counters of devices that are not there are passed over, and the reply can be built.
//
// An input is two tables with a line "%%" between them.
#include "daemon_world.h"
#include "input.h"
#include "message.h"
#include "netintf/registry.h"
#include "netintf/statist.h"
#include "trace.h"
#include "world.h"

#include <libubus.h>
#include <string>

namespace {

using fuzz::promise;

void sample(std::string_view table)
{
    seam::world.net_dev = std::string{table};
    uloop_timeout timeout{};
    netintf_statist_timer(&timeout);
    seam::trace_take();
}

void add_interfaces()
{
    const uint8_t mac[6] = {};
    for (const char *name : {"lan1", "lan2", "wan1", "wan1_4000", "eth0"}) {
        uint32_t port = 0;
        if (netintf_hwport_get_byname(name, &port) == 0) {
            netintf_l3intf_init(port, name, name[0] == 'l' ? intf_type_lan : intf_type_wan, mac, 0xffff,
                                0xffff);
        }
    }
}

void check()
{
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        const netintf_entry *head = netintf_port_head_get(port);
        for (const netintf_entry *entry = head->next; entry != head; entry = entry->next) {
            promise(entry->rx_rate == (entry->rx_bytes - entry->rx_bytes_prev) / 3,
                    "rates follow from counters");
            promise(entry->tx_rate == (entry->tx_bytes - entry->tx_bytes_prev) / 3,
                    "rates follow from counters");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text{reinterpret_cast<const char *>(data), size};
    const size_t border = text.find("\n%%\n");
    fuzz::daemon_fresh(false);
    add_interfaces();
    sample(text.substr(0, border));
    check();
    if (border != text.npos) {
        sample(text.substr(border + 4));
        check();
    }
    promise(seam::call_method("ivarode.intf", "statist") == 0, "statistics are given");
    fuzz::daemon_check();
    return 0;
}
