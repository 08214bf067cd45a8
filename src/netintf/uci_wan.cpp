#include "core/log.h"
#include "core/result.h"
#include "netintf/device.h"
#include "netintf/lifecycle.h"
#include "netintf/proto.h"
#include "netintf/startup.h"
#include "netintf/uci_options.h"
#include "platform/netdev.h"

#include <stdlib.h>

namespace {

struct address_texts {
    const char *ipaddr;
    const char *netmask;
    const char *gateway;
};

// The policy route of a static WAN stands only while its port has link.
int static_start(netintf_entry *entry, const address_texts &address, uint32_t link)
{
    const int rv = netintf_proto_config_static(entry, address.ipaddr, address.netmask, address.gateway,
                                               entry->defrt_pri);
    if (rv != rv_ok) {
        return rv;
    }
    netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    if (link != 0 && entry->enable != 0) {
        netlib_intf_plcrt_add(entry->name, entry->defrt_pri);
    }
    return rv_ok;
}

int pppoe_start(netintf_entry *entry, const uci_options &options)
{
    const char *username = options.text("username");
    const char *password = options.text("password");
    const char *server = options.text("server");
    return netintf_proto_config_pppoe(entry, 1, server, username, password);
}

int protocol_start(netintf_entry *entry, const uci_options &options, uint32_t link, address_texts *address)
{
    int rv = rv_ok;
    switch (entry->proto) {
    case proto_static:
        *address = {options.text("ipaddr"), options.text("netmask"), options.text("gateway")};
        return static_start(entry, *address, link);
    case proto_dhcp:
        rv = netintf_proto_config_dhcp(entry);
        if (rv != rv_ok) {
            NET_ERROR("wan dhcp config error,if=%s\n", options.name());
        }
        return rv;
    default:
        rv = pppoe_start(entry, options);
        if (rv != rv_ok) {
            NET_ERROR("wan pppoe config error,if=%s\n", options.name());
        }
        return rv;
    }
}

const char *known_address(const char *text)
{
    return text != nullptr ? text : "0.0.0.0";
}

int waninfo_insert(const char *name, netintf_proto proto, const address_texts &address)
{
    char proto_text[name_size] = {};
    if (const int rv = netintf_proto_enumtostr(proto, proto_text, sizeof(proto_text)); rv != rv_ok) {
        return rv;
    }
    const int rv = netlib_waninfo_db_insert(name, proto_text, known_address(address.ipaddr),
                                            known_address(address.netmask), known_address(address.gateway),
                                            "0.0.0.0", "0.0.0.0");
    if (rv != 0) {
        NET_ERROR("wan info db insert error,if=%s\n", name);
    }
    return rv;
}

} // namespace

int netintf_uci_wan_parse_each(struct uci_context *ctx, struct uci_section *section, void *)
{
    const uci_options options(ctx, section);
    const char *name = options.name();
    if (!text_begins(name, "wan", __func__, __LINE__)) {
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
    if (netintf_port_init_once(&netintf_wan_port_mask, intf_type_wan, atoi(name + 3), port) != rv_ok) {
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
    address_texts address = {};
    if (const int rv = protocol_start(entry, options, link, &address); rv != rv_ok) {
        return rv;
    }
    return waninfo_insert(name, entry->proto, address);
}
