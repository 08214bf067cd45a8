#include "core/log.h"
#include "core/result.h"
#include "netintf/device.h"
#include "netintf/lifecycle.h"
#include "netintf/proto.h"
#include "netintf/startup.h"
#include "netintf/uci_options.h"

int netintf_uci_lan_parse_each(struct uci_context *ctx, struct uci_section *section, void *)
{
    const uci_options options(ctx, section);
    const char *name = options.name();
    if (netintf_type_of(name) != intf_type_lan) {
        return rv_ok;
    }
    const uint16_t vlanid1 = options.vlan("vlanid1");
    const uint16_t vlanid2 = options.vlan("vlanid2");
    const char *mac_text = options.text("mac");
    const auto enable = static_cast<uint32_t>(options.number("enable", 0));

    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        return rv_fail;
    }
    uint8_t mac[mac_size] = {};
    if (const int rv = netintf_section_mac("lan", name, mac_text, port, mac); rv != rv_ok) {
        return rv;
    }
    if (netintf_port_init_once(&netintf_lan_port_mask, intf_type_lan, netintf_number_of(name), port) !=
        rv_ok) {
        return rv_fail;
    }
    netintf_entry *entry = netintf_lan_add(name, mac, vlanid1, vlanid2, enable);
    if (entry == nullptr) {
        NET_ERROR("%s %d\n", __func__, 2443);
        return rv_device;
    }
    const char *ipaddr = options.text("ipaddr");
    const char *netmask = options.text("netmask");
    return netintf_lan_addr_set(entry, ipaddr, netmask);
}
