#include "netintf/bridge.h"

#include "board/vlan.h"
#include "core/log.h"
#include "core/result.h"
#include "core/text.h"
#include "netintf/device.h"
#include "netintf/registry.h"
#include "platform/netdev.h"

namespace {

// The two devices of an interface.
struct bridge_devices {
    char bridge[name_size];
    char member[name_size];
};

// False for a name that is neither a LAN's nor a WAN's.
bool devices_name(bridge_devices *devices, const char *name, uint32_t proto, uint32_t hw_port, int vid1,
                  int vid2)
{
    const uint32_t type = netintf_type_of(name);
    if (type == intf_type_none) {
        return false;
    }
    netintf_bridge_name(devices->bridge, sizeof(devices->bridge), name, proto);
    const char *master = netintf_cpu_path(type).master;
    char(&member)[name_size] = devices->member;
    if (vid1 == vlan_none) {
        text_format(member, sizeof(member), "%s.%d", master, port_vlan(hw_port));
    } else if (vid2 != vlan_none) {
        text_format(member, sizeof(member), "%s.%d.%d", master, vid1, vid2);
    } else {
        text_format(member, sizeof(member), "%s.%d", master, vid1);
    }
    return true;
}

int bridge_build(const bridge_devices &devices, const uint8_t *mac)
{
    const char *bridge = devices.bridge;
    if (netlib_br_create(bridge) != 0) {
        return rv_fail;
    }
    if (!netintf_mac_is_zero(mac) && netlib_eth_mac_set(bridge, mac) != 0) {
        return rv_device;
    }
    if (netlib_eth_intf_up(bridge) != 0 || netlib_br_addif(bridge, devices.member) != 0) {
        return rv_fail;
    }
    return rv_ok;
}

} // namespace

void netintf_bridge_name(char *device, size_t size, const char *name, uint32_t proto)
{
    text_format(device, size, "%s%s", name, proto == proto_pppoe ? "_pe" : "");
}

int netintf_bridge_create(const char *name, uint32_t proto, uint32_t hw_port, const uint8_t *mac,
                          uint16_t vid1, uint16_t vid2, int bring_up)
{
    bridge_devices devices;
    if (hw_port >= netintf_port_count || !devices_name(&devices, name, proto, hw_port, vid1, vid2)) {
        return rv_invalid;
    }
    const char *bridge = devices.bridge;
    if (const int rv = bridge_build(devices, mac); rv != rv_ok) {
        NET_ERROR("veth init failed, master_intf=%s veth_intfname=%s mac=%02x:%02x:%02x:%02x:%02x:%02x\n",
                  devices.member, bridge, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        return rv;
    }
    uint32_t link = 0;
    if (netintf_link_get_byname(name, &link) != rv_ok) {
        NET_ERROR("port link get error\r\n");
        return rv_ok;
    }
    if (bring_up != 0 && link != 0 && netlib_eth_intf_up(bridge) != 0) {
        NET_ERROR("%s up error\r\n", bridge);
        return rv_fail;
    }
    return rv_ok;
}

int netintf_bridge_delete(const char *name, uint32_t proto, uint32_t hw_port, int vid1, int vid2)
{
    bridge_devices devices;
    if (!devices_name(&devices, name, proto, hw_port, vid1, vid2) || hw_port >= netintf_port_count) {
        return rv_invalid;
    }
    const char *bridge = devices.bridge;
    if (netlib_br_delif(bridge, devices.member) != 0 || netlib_eth_intf_down(bridge) != 0 ||
        netlib_br_delete(bridge) != 0) {
        return rv_fail;
    }
    return rv_ok;
}
