#include "core/result.h"
#include "netintf/lifecycle.h"
#include "netintf/startup.h"
#include "netintf/uci_options.h"
#include "netintf/wan.h"

namespace {

wan_settings settings_get(netintf_proto proto, const uci_options &options)
{
    wan_settings settings = {};
    if (proto == proto_static) {
        settings.ipaddr = options.text("ipaddr");
        settings.netmask = options.text("netmask");
        settings.gateway = options.text("gateway");
    } else if (proto == proto_pppoe) {
        settings.username = options.text("username");
        settings.password = options.text("password");
        settings.service = options.text("server");
    }
    return settings;
}

} // namespace

int netintf_uci_wan_parse_each(struct uci_context *ctx, struct uci_section *section, void *)
{
    const uci_options options(ctx, section);
    const char *name = options.name();
    if (netintf_type_of(name) != intf_type_wan) {
        return rv_ok;
    }
    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        return rv_fail;
    }
    const uint16_t vlanid1 = options.vlan("vlanid1");
    const uint16_t vlanid2 = options.vlan("vlanid2");
    const auto enable = static_cast<uint32_t>(options.number("enable", 0));
    uint8_t mac[mac_size] = {};
    if (const int rv = netintf_section_mac("wan", name, options.text("mac"), port, mac); rv != rv_ok) {
        return rv;
    }
    netintf_proto proto = proto_static;
    if (const char *proto_text = options.text("proto"); proto_text != nullptr) {
        if (const int rv = netintf_proto_strtoenum(proto_text, &proto); rv != rv_ok) {
            return rv;
        }
    }
    if (netintf_port_init_once(&netintf_wan_port_mask, intf_type_wan, netintf_number_of(name), port) !=
        rv_ok) {
        return rv_fail;
    }
    netintf_entry *entry = netintf_wan_add(name, proto, mac, vlanid1, vlanid2, enable);
    if (entry == nullptr) {
        return rv_device;
    }
    entry->enable = enable;
    entry->proto = proto;
    entry->defrt_pri = options.number("defrt_pri", defrt_pri_default);

    uint32_t link = 0;
    netintf_link_get_byname(name, &link);
    return netintf_wan_start(entry, name, settings_get(proto, options), link, wan_by_uci);
}
