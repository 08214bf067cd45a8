#include "netintf/l3intf_wan_config.h"

#include "core/log.h"
#include "core/result.h"
#include "netintf/proto.h"
#include "platform/netdev.h"

#include <stdlib.h>

namespace {

// The addresses a static WAN is given; null for the protocols that learn theirs.
struct address_texts {
    const char *ipaddr;
    const char *netmask;
    const char *gateway;
};

int static_texts_get(const intf_fields &fields, address_texts *address)
{
    if (fields[intf_ipaddr] == nullptr || fields[intf_netmask] == nullptr) {
        return rv_fail;
    }
    *address = {blobmsg_get_string(fields[intf_ipaddr]), blobmsg_get_string(fields[intf_netmask]),
                blobmsg_get_string(fields[intf_gateway])};
    if (address->ipaddr == nullptr) {
        NET_ERROR("ipaddr is null\n");
        return rv_fail;
    }
    if (address->netmask == nullptr) {
        NET_ERROR("netmask is null\n");
        return rv_fail;
    }
    if (address->gateway == nullptr) {
        NET_ERROR("gateway is null\n");
        return rv_fail;
    }
    return rv_ok;
}

int static_config(netintf_entry *entry, const intf_fields &fields, uint32_t link, address_texts *address)
{
    if (static_texts_get(fields, address) != rv_ok) {
        return rv_fail;
    }
    char old_gateway[address_text_size];
    netintf_address_text(entry->gateway, old_gateway);
    netlib_intf_gateway_del(entry->defrt_pri, old_gateway, entry->name, entry->defrt_pri);
    netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    const int rv = netintf_proto_config_static(entry, address->ipaddr, address->netmask, address->gateway,
                                               entry->defrt_pri);
    if (rv != rv_ok) {
        return rv_fail;
    }
    if (link != 0 && entry->enable != 0) {
        netlib_intf_plcrt_add(entry->name, entry->defrt_pri);
    }
    return rv_ok;
}

int pppoe_config(netintf_entry *entry, const intf_fields &fields)
{
    if (fields[intf_username] == nullptr || fields[intf_password] == nullptr) {
        NET_ERROR("pppoe config param error %p,%p\n", static_cast<void *>(fields[intf_username]),
                  static_cast<void *>(fields[intf_password]));
        return rv_fail;
    }
    const char *username = blobmsg_get_string(fields[intf_username]);
    if (username == nullptr) {
        NET_ERROR("pppoe username is null\n");
        return rv_fail;
    }
    const char *password = blobmsg_get_string(fields[intf_password]);
    if (password == nullptr) {
        NET_ERROR("pppoe password is null\n");
        return rv_fail;
    }
    const char *server = blobmsg_get_string(fields[intf_server]);
    if (fields[intf_server] != nullptr && server == nullptr) {
        NET_ERROR("pppoe server is null\n");
        return rv_fail;
    }
    return entry->enable == 0 ? netintf_proto_pppoe_stop(entry)
                              : netintf_proto_config_pppoe(entry, 1, server, username, password);
}

int protocol_config(netintf_entry *entry, const intf_fields &fields, uint32_t link, address_texts *address)
{
    switch (entry->proto) {
    case proto_static:
        return static_config(entry, fields, link, address);
    case proto_dhcp:
        return netintf_proto_config_dhcp(entry);
    default:
        return pppoe_config(entry, fields);
    }
}

} // namespace

int l3intf_wan_config(netintf_entry *entry, const char *name, const intf_fields &fields, netintf_proto proto)
{
    entry->proto = proto;
    const char *priority = blobmsg_get_string(fields[intf_defrt_pri]);
    if (priority == nullptr) {
        NET_ERROR("default route priority is null\n");
        return rv_fail;
    }
    entry->defrt_pri = atoi(priority);
    uint32_t link = 0;
    netintf_link_get_byname(name, &link);
    address_texts address = {};
    if (protocol_config(entry, fields, link, &address) != rv_ok) {
        return rv_fail;
    }
    char proto_text[name_size] = {};
    if (netintf_proto_enumtostr(proto, proto_text, sizeof(proto_text)) != rv_ok) {
        return rv_fail;
    }
    if (netlib_waninfo_db_insert(name, proto_text, address.ipaddr, address.netmask, address.gateway, nullptr,
                                 nullptr) != 0) {
        NET_ERROR("wan info db insert error\n");
        return rv_fail;
    }
    return rv_ok;
}
