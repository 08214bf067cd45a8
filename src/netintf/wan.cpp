#include "netintf/wan.h"

#include "core/log.h"
#include "core/result.h"
#include "platform/netdev.h"

namespace {

void old_gateway_delete(const netintf_entry *entry)
{
    char gateway[address_text_size];
    netintf_address_text(entry->gateway, gateway);
    netlib_intf_gateway_del(entry->defrt_pri, gateway, entry->name, entry->defrt_pri);
}

int static_start(netintf_entry *entry, const wan_settings &settings, uint32_t link, const wan_manner &manner)
{
    if (manner.rule == old_rule::goes_before) {
        old_gateway_delete(entry);
        netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    }
    const int rv = netintf_proto_config_static(entry, settings.ipaddr, settings.netmask, settings.gateway,
                                               entry->defrt_pri);
    if (rv != rv_ok) {
        return rv;
    }
    if (manner.rule == old_rule::goes_after) {
        netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    }
    if (link != 0 && entry->enable != 0) {
        netlib_intf_plcrt_add(entry->name, entry->defrt_pri);
    }
    return rv_ok;
}

int protocol_start(netintf_entry *entry, const char *name, const wan_settings &settings, uint32_t link,
                   const wan_manner &manner)
{
    if (entry->proto == proto_static) {
        return static_start(entry, settings, link, manner);
    }
    if (entry->proto == proto_dhcp) {
        const int rv = netintf_proto_config_dhcp(entry);
        if (rv != rv_ok && manner.names_failures) {
            NET_ERROR("wan dhcp config error,if=%s\n", name);
        }
        return rv;
    }
    if (manner.stops_disabled_pppoe && entry->enable == 0) {
        return netintf_proto_pppoe_stop(entry);
    }
    const int rv =
        netintf_proto_config_pppoe(entry, 1, settings.service, settings.username, settings.password);
    if (rv != rv_ok && manner.names_failures) {
        NET_ERROR("wan pppoe config error,if=%s\n", name);
    }
    return rv;
}

int row_insert(const netintf_entry *entry, const char *name, const wan_settings &settings,
               const wan_manner &manner)
{
    char proto[name_size] = {};
    if (settings.proto == nullptr) {
        if (const int rv = netintf_proto_enumtostr(entry->proto, proto, sizeof(proto)); rv != rv_ok) {
            return rv;
        }
    }
    const char *unknown = manner.unknown_address;
    const auto known = [unknown](const char *address) { return address != nullptr ? address : unknown; };
    const int rv = netlib_waninfo_db_insert(name, settings.proto != nullptr ? settings.proto : proto,
                                            known(settings.ipaddr), known(settings.netmask),
                                            known(settings.gateway), unknown, unknown);
    if (rv != 0 && manner.names_failures) {
        NET_ERROR("wan info db insert error,if=%s\n", name);
    } else if (rv != 0) {
        NET_ERROR("wan info db insert error\n");
    }
    return rv;
}

} // namespace

int netintf_wan_start(netintf_entry *entry, const char *name, const wan_settings &settings, uint32_t link,
                      const wan_manner &manner)
{
    if (const int rv = protocol_start(entry, name, settings, link, manner); rv != rv_ok) {
        return rv;
    }
    return row_insert(entry, name, settings, manner);
}

void netintf_wan_gateway_add(const netintf_entry *entry)
{
    char gateway[address_text_size];
    netintf_address_text(entry->gateway, gateway);
    netlib_intf_gateway_add(entry->defrt_pri, gateway, entry->name, entry->defrt_pri);
}

void netintf_wan_rule_add(const netintf_entry *entry)
{
    if (netlib_intf_plcrt_add(entry->name, entry->defrt_pri) != 0) {
        NET_ERROR("static if plcrt add error\n");
    }
}
