#include "netintf/proto.h"

#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "platform/command.h"
#include "platform/netdev.h"

#include <arpa/inet.h>

int netintf_proto_strtoenum(const char *text, netintf_proto *proto)
{
    // The lengths are fixed: "dhcpv6" and "statix" are known texts.
    if (text_begins(text, "dhcp")) {
        *proto = proto_dhcp;
    } else if (strncmp_safe_record(text, "static", 5, __func__, __LINE__) == 0) {
        *proto = proto_static;
    } else if (text_begins(text, "pppoe")) {
        *proto = proto_pppoe;
    } else {
        return rv_proto;
    }
    return rv_ok;
}

int netintf_proto_enumtostr(netintf_proto proto, char *text, size_t size)
{
    constexpr const char *names[] = {nullptr, "static", "dhcp", "pppoe"};
    if (proto < proto_static || proto > proto_pppoe) {
        return rv_proto;
    }
    strncpy_safe_record(text, names[proto], static_cast<unsigned>(size), __func__, __LINE__);
    return rv_ok;
}

bool netintf_address_is_any(const char *text)
{
    return text_equals(text, address_any);
}

void netintf_address_text(uint32_t address, char (&text)[address_text_size])
{
    inet_ntop(AF_INET, &address, text, sizeof(text));
}

int netintf_proto_config_static(netintf_entry *entry, const char *ipaddr, const char *netmask,
                                const char *gateway, int priority)
{
    entry->proto = proto_static;
    if (ipaddr != nullptr) {
        entry->ipaddr = inet_addr(ipaddr);
        if (const int rv = netlib_intf_set_ip(entry->name, ipaddr); rv != 0) {
            return rv;
        }
    }
    if (netmask != nullptr && !netintf_address_is_any(netmask) &&
        (ipaddr == nullptr || !netintf_address_is_any(ipaddr))) {
        entry->netmask = inet_addr(netmask);
        if (const int rv = netlib_intf_set_netmask(entry->name, netmask); rv != 0) {
            return rv;
        }
    }
    if (gateway == nullptr || netintf_address_is_any(gateway)) {
        return rv_ok;
    }
    entry->gateway = inet_addr(gateway);
    netlib_intf_gateway_add(priority, gateway, entry->name, priority);
    entry->defrt_pri = priority;
    return rv_ok;
}

int netintf_lan_addr_set(netintf_entry *entry, const char *ipaddr, const char *netmask)
{
    return netintf_proto_config_static(entry, ipaddr, netmask, nullptr, -1);
}

int netintf_proto_static_stop(netintf_entry *entry)
{
    return netlib_intf_set_ip(entry->name, address_any) == 0 ? rv_ok : rv_fail;
}

int netintf_proto_stop(netintf_entry *entry)
{
    switch (entry->proto) {
    case proto_pppoe:
        netintf_proto_pppoe_stop(entry);
        break;
    case proto_dhcp:
        netintf_proto_dhcp_stop(entry);
        break;
    default:
        netintf_proto_static_stop(entry);
        break;
    }
    if (netlib_waninfo_db_del_byname(entry->name) != 0) {
        NET_WARNING("ipcp wan info db del by name error error\n");
    }
    return rv_ok;
}
