#include "netintf/port_device.h"

#include "board/board_map.h"
#include "board/switch_port.h"
#include "board/vlan.h"
#include "board/vlan_table.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/device.h"
#include "netintf/registry.h"

#include <initializer_list>
#include <string.h>

namespace {

// The list head says which LAN or WAN its port serves.
int head_mark(uint32_t type, int number, uint32_t hw_port)
{
    netintf_entry *head = netintf_port_head_get(hw_port);
    if (head == nullptr || (type != intf_type_lan && type != intf_type_wan)) {
        return rv_fail;
    }
    head->intf_type = type;
    head->hw_port = hw_port;
    text_format(head->name, sizeof(head->name), type == intf_type_lan ? "lan%d" : "wan%d", number);
    return rv_ok;
}

// The switch and kernel side of giving a port back, up to the first failure.
int port_vlan_exit(uint32_t type, uint32_t hw_port)
{
    const cpu_path path = netintf_cpu_path(type);
    const uint32_t vid = port_vlan(hw_port);
    char device[name_size];
    text_format(device, sizeof(device), "%s.%d", path.master, vid);

    int rv = netintf_vintf_delete(device);
    uint32_t lan1_port = 0;
    if (rv == rv_ok) {
        rv = netbd_lan_hwport_get(1, &lan1_port);
    }
    if (rv == rv_ok) {
        rv = mtksw_port_pvid_set(hw_port, port_vlan(lan1_port));
    }
    if (rv == rv_ok) {
        rv = mtksw_vlan_member_set(lan1_port, port_vlan(lan1_port), hw_port);
    }
    if (rv == rv_ok) {
        rv = mtksw_vlan_member_clear(hw_port, vid, hw_port);
    }
    if (rv == rv_ok) {
        rv = mtksw_vlan_member_clear(hw_port, vid, path.cpu_port);
    }
    return rv;
}

} // namespace

uint32_t netintf_port_name_type(const char *name)
{
    return strlen(name) == strlen("lan1") ? netintf_type_of(name) : intf_type_none;
}

int netintf_port_init(uint32_t type, int number, uint32_t hw_port)
{
    if (hw_port >= netintf_port_count) {
        return rv_invalid;
    }
    const cpu_path path = netintf_cpu_path(type);
    const uint32_t vid = port_vlan(hw_port);
    uint32_t lan1_port = 0;
    if (const int rv = netbd_lan_hwport_get(1, &lan1_port); rv != rv_ok) {
        return rv;
    }
    if (const int rv = mtksw_vlan_member_clear(lan1_port, port_vlan(lan1_port), hw_port); rv != rv_ok) {
        NET_ERROR("vlan member clear failed,hw_port=%d\n", hw_port);
        return rv;
    }
    if (const int rv = mtksw_port_pvid_set(hw_port, vid); rv != rv_ok) {
        NET_ERROR("vlan pvid set failed,hw_port=%d\n", hw_port);
        return rv;
    }
    for (const uint32_t member : {hw_port, path.cpu_port}) {
        if (const int rv = mtksw_vlan_member_set(hw_port, vid, member); rv != rv_ok) {
            NET_ERROR("vlan member set failed,hw_port=%d\n", hw_port);
            return rv;
        }
    }
    uint8_t mac[mac_size] = {};
    if (const int rv = netintf_device_mac_get(hw_port, mac); rv != rv_ok) {
        return rv;
    }
    if (const int rv = netintf_vintf_init(path.master, static_cast<int>(vid), mac); rv != rv_ok) {
        NET_ERROR("net vintf init failed, hw_port=%d\n", hw_port);
        return rv;
    }
    return head_mark(type, number, hw_port);
}

int netintf_hw_port_exit(uint32_t type, uint32_t hw_port)
{
    if (const int rv = port_vlan_exit(type, hw_port); rv != rv_ok) {
        NET_ERROR("port default vlan exit error,type=%d hw_port==%d\n", type, hw_port);
        return rv;
    }
    netintf_entry *head = netintf_port_head_get(hw_port);
    if (head == nullptr) {
        NET_ERROR("hw intf get by port error,hw_port==%d\n", hw_port);
        return rv_fail;
    }
    // Always "lan1", also for a WAN port: the port belongs to LAN 1 again.
    head->intf_type = intf_type_none;
    text_copy(head->name, "lan1");
    return rv_ok;
}
