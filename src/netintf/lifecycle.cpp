#include "netintf/lifecycle.h"

#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "netintf/device.h"
#include "netintf/proto.h"
#include "netintf/vlan_intf.h"
#include "platform/netdev.h"

namespace {

// What an interface is made of; proto is that of its device.
struct new_intf {
    const char *name;
    uint32_t type;
    uint32_t proto;
    const uint8_t *mac;
    uint16_t vlanid1;
    uint16_t vlanid2;
    uint32_t enable;
};

enum class add_step { port, record, vlan, device, done };

struct add_result {
    netintf_entry *entry;
    add_step failed; // done: nothing failed
};

add_result intf_add(const new_intf &intf)
{
    uint32_t port = 0;
    if (netintf_hwport_get_byname(intf.name, &port) != rv_ok) {
        return {nullptr, add_step::port};
    }
    netintf_entry *entry =
        netintf_l3intf_init(port, intf.name, intf.type, intf.mac, intf.vlanid1, intf.vlanid2);
    if (entry == nullptr) {
        return {nullptr, add_step::record};
    }
    if (intf.vlanid1 != vlan_none &&
        netintf_vlan_intf_create(intf.type, port, intf.vlanid1, intf.vlanid2) != rv_ok) {
        return {nullptr, add_step::vlan};
    }
    if (netintf_bridge_create(intf.name, intf.proto, port, intf.mac, intf.vlanid1, intf.vlanid2,
                              static_cast<int>(intf.enable)) != rv_ok) {
        return {nullptr, add_step::device};
    }
    if (netintf_mac_is_zero(intf.mac)) {
        netlib_eth_mac_get(intf.name, entry->mac);
    }
    return {entry, add_step::done};
}

int intf_remove(netintf_entry *entry)
{
    const int rv =
        netintf_bridge_delete(entry->name, entry->proto, entry->hw_port, entry->vlanid1, entry->vlanid2);
    if (rv != rv_ok) {
        return rv;
    }
    if (entry->vlanid1 != vlan_none) {
        const int vlan_rv = netintf_vlan_intf_delete(static_cast<int>(entry->intf_type), entry->hw_port,
                                                     entry->vlanid1, entry->vlanid2);
        if (vlan_rv != rv_ok) {
            return vlan_rv;
        }
    }
    return netintf_entry_free(entry) == rv_ok ? rv_ok : rv_startup;
}

} // namespace

netintf_entry *netintf_lan_add(const char *name, const uint8_t *mac, uint16_t vlanid1, uint16_t vlanid2,
                               uint32_t enable)
{
    // A LAN's device never is a PPPoE one.
    const add_result result = intf_add({name, intf_type_lan, proto_static, mac, vlanid1, vlanid2, enable});
    switch (result.failed) {
    case add_step::port:
        NET_ERROR("%s %d\n", __func__, 2240);
        break;
    case add_step::record:
        NET_ERROR("%s %d\n", __func__, 2247);
        break;
    case add_step::vlan:
        NET_ERROR("%s %d\n", __func__, 2254);
        break;
    case add_step::device:
        NET_ERROR("%s %d:user intf init failed\n", __func__, 2261);
        break;
    case add_step::done:
        break;
    }
    return result.entry;
}

netintf_entry *netintf_wan_add(const char *name, uint32_t proto, const uint8_t *mac, uint16_t vlanid1,
                               uint16_t vlanid2, uint32_t enable)
{
    return intf_add({name, intf_type_wan, proto, mac, vlanid1, vlanid2, enable}).entry;
}

int netintf_lan_del(const char *name)
{
    netintf_entry *entry = netintf_entry_find_byname(name);
    return entry == nullptr ? rv_device : intf_remove(entry);
}

int netintf_wan_del(const char *name)
{
    netintf_entry *entry = netintf_entry_find_byname(name);
    if (entry == nullptr) {
        return rv_device;
    }
    netintf_proto_stop(entry);
    return intf_remove(entry);
}
