#include "netintf/lifecycle.h"

#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "netintf/device.h"
#include "netintf/proto.h"
#include "netintf/vlan_intf.h"
#include "platform/netdev.h"

namespace {

// The parts of an interface; proto is that of its device.
struct new_intf {
    const char *name;
    uint32_t type;
    uint32_t proto;
    const uint8_t *mac;
    uint16_t vlanid1;
    uint16_t vlanid2;
    uint32_t enable;
};

enum add_step { step_port, step_record, step_vlan, step_device };

// The reports of a LAN's failing steps.
constexpr void (*lan_reports[])() = {
    [] { NET_ERROR("%s %d\n", "netintf_lan_add", 2240); },
    [] { NET_ERROR("%s %d\n", "netintf_lan_add", 2247); },
    [] { NET_ERROR("%s %d\n", "netintf_lan_add", 2254); },
    [] { NET_ERROR("%s %d:user intf init failed\n", "netintf_lan_add", 2261); },
};

// The new record, or null; *step is then the step that failed.
netintf_entry *intf_add(const new_intf &intf, add_step *step)
{
    uint32_t port = 0;
    *step = step_port;
    if (netintf_hwport_get_byname(intf.name, &port) != rv_ok) {
        return nullptr;
    }
    *step = step_record;
    netintf_entry *entry =
        netintf_l3intf_init(port, intf.name, intf.type, intf.mac, intf.vlanid1, intf.vlanid2);
    if (entry == nullptr) {
        return nullptr;
    }
    *step = step_vlan;
    if (intf.vlanid1 != vlan_none &&
        netintf_vlan_intf_create(intf.type, port, intf.vlanid1, intf.vlanid2) != rv_ok) {
        return nullptr;
    }
    *step = step_device;
    if (netintf_bridge_create(intf.name, intf.proto, port, intf.mac, intf.vlanid1, intf.vlanid2,
                              static_cast<int>(intf.enable)) != rv_ok) {
        return nullptr;
    }
    if (netintf_mac_is_zero(intf.mac)) {
        netlib_eth_mac_get(intf.name, entry->mac);
    }
    return entry;
}

int intf_remove(netintf_entry *entry)
{
    if (const int rv =
            netintf_bridge_delete(entry->name, entry->proto, entry->hw_port, entry->vlanid1, entry->vlanid2);
        rv != rv_ok) {
        return rv;
    }
    if (entry->vlanid1 != vlan_none) {
        if (const int rv =
                netintf_vlan_intf_delete(entry->intf_type, entry->hw_port, entry->vlanid1, entry->vlanid2);
            rv != rv_ok) {
            return rv;
        }
    }
    return netintf_entry_free(entry) == rv_ok ? rv_ok : rv_startup;
}

} // namespace

netintf_entry *netintf_lan_add(const char *name, const uint8_t *mac, uint16_t vlanid1, uint16_t vlanid2,
                               uint32_t enable)
{
    // A LAN never gets the PPPoE device name.
    add_step step = step_port;
    netintf_entry *entry =
        intf_add({name, intf_type_lan, proto_static, mac, vlanid1, vlanid2, enable}, &step);
    if (entry == nullptr) {
        lan_reports[step]();
    }
    return entry;
}

netintf_entry *netintf_wan_add(const char *name, uint32_t proto, const uint8_t *mac, uint16_t vlanid1,
                               uint16_t vlanid2, uint32_t enable)
{
    add_step step = step_port;
    return intf_add({name, intf_type_wan, proto, mac, vlanid1, vlanid2, enable}, &step);
}

int netintf_lan_del(const char *name)
{
    netintf_entry *entry = netintf_entry_find_byname(name);
    return entry != nullptr ? intf_remove(entry) : rv_device;
}

int netintf_wan_del(const char *name)
{
    if (netintf_entry *entry = netintf_entry_find_byname(name); entry != nullptr) {
        netintf_proto_stop(entry);
        return intf_remove(entry);
    }
    return rv_device;
}
