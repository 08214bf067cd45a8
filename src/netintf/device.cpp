#include "netintf/device.h"

#include "board/board_map.h"
#include "board/vlan.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/registry.h"
#include "platform/netdev.h"

#include <string.h>

cpu_path netintf_cpu_path(uint32_t type)
{
    if (type == intf_type_wan && netbd_board_type_get() >= board_type_two_cpu_ports) {
        return {"eth1", cpu_port_eth1};
    }
    return {"eth0", cpu_port_eth0};
}

bool netintf_mac_is_zero(const uint8_t *mac)
{
    constexpr uint8_t zero[mac_size] = {};
    return memcmp(mac, zero, mac_size) == 0;
}

int netintf_port_mac_get(uint32_t sequence, uint8_t *mac)
{
    netbd_basemac_get(mac);
    const uint32_t low =
        (static_cast<uint32_t>(mac[3]) << 16 | static_cast<uint32_t>(mac[4]) << 8 | mac[5]) + sequence;
    mac[3] = static_cast<uint8_t>(low >> 16);
    mac[4] = static_cast<uint8_t>(low >> 8);
    mac[5] = static_cast<uint8_t>(low);
    return rv_ok;
}

int netintf_device_mac_get(uint32_t hw_port, uint8_t *mac)
{
    uint32_t sequence = 0;
    if (const int rv = netbd_seqport_get(hw_port, &sequence); rv != rv_ok) {
        NET_ERROR("hw_port=%d get seq port error\n", hw_port);
        return rv;
    }
    netintf_port_mac_get(sequence, mac);
    mac[0] = static_cast<uint8_t>(mac[0] + 2);
    return rv_ok;
}

int netintf_vintf_init(const char *master, int vid, const uint8_t *mac)
{
    if (netilib_vintf_create(master, vid) != 0) {
        return rv_device;
    }
    char name[name_size];
    text_format(name, sizeof(name), "%s.%d", master, vid);
    if (!netintf_mac_is_zero(mac) && netlib_eth_mac_set(name, mac) != 0) {
        return rv_device;
    }
    return netlib_eth_intf_up(name) == 0 ? rv_ok : rv_device;
}

int netintf_vintf_delete(const char *name)
{
    if (netlib_eth_intf_down(name) != 0 || netlib_vintf_delete(name) != 0) {
        return rv_device;
    }
    return rv_ok;
}
