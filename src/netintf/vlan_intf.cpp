#include "netintf/vlan_intf.h"

#include "board/board_map.h"
#include "board/vlan.h"
#include "board/vlan_table.h"
#include "core/result.h"
#include "core/text.h"
#include "netintf/device.h"
#include "netintf/registry.h"

#include <initializer_list>
#include <utility>

namespace {

// The device under an interface's VLAN: "eth0", or the port device on "eth1".
struct vlan_carrier {
    char master[name_size];
    uint32_t cpu_port;
};

bool arguments_valid(uint32_t type, uint32_t hw_port, int vid1)
{
    return hw_port < netintf_port_count && vid1 != vlan_none &&
           (type == intf_type_lan || type == intf_type_wan);
}

vlan_carrier carrier_of(uint32_t type, uint32_t hw_port)
{
    const cpu_path path = netintf_cpu_path(type);
    vlan_carrier carrier = {{}, path.cpu_port};
    if (path.cpu_port == cpu_port_eth1) {
        text_format(carrier.master, sizeof(carrier.master), "%s.%d", path.master, port_vlan(hw_port));
    } else {
        text_format(carrier.master, sizeof(carrier.master), "%s", path.master);
    }
    return carrier;
}

bool shares_cpu_path(uint32_t type, uint32_t other_type)
{
    return netintf_cpu_path(type).cpu_port == netintf_cpu_path(other_type).cpu_port;
}

bool uses_vlan(const netintf_entry *entry, uint32_t type, uint32_t vid1, uint32_t vid2)
{
    return vid1 != vlan_none && shares_cpu_path(type, entry->intf_type) && entry->vlanid1 == vid1 &&
           (vid2 == vlan_none || entry->vlanid2 == vid2);
}

// Deletes the device if the VLAN has one user left.
int device_release(uint32_t type, uint32_t vid1, uint32_t vid2, const char *device)
{
    uint32_t users = 0;
    if (netintf_vlan_users_count(type, vid1, vid2, &users) != rv_ok || users == 0) {
        return rv_fail;
    }
    return users == 1 ? netintf_vintf_delete(device) : rv_ok;
}

} // namespace

int netintf_vlan_intf_create(uint32_t type, uint32_t hw_port, int vid1, int vid2)
{
    if (!arguments_valid(type, hw_port, vid1)) {
        return rv_invalid;
    }
    const vlan_carrier carrier = carrier_of(type, hw_port);
    for (const uint32_t member : {hw_port, carrier.cpu_port}) {
        const int rv = mtksw_vlan_member_set(vlan_index_by_vid, static_cast<uint32_t>(vid1), member);
        if (rv != rv_ok) {
            return rv;
        }
    }
    uint8_t mac[mac_size] = {};
    if (const int rv = netintf_device_mac_get(hw_port, mac); rv != rv_ok) {
        return rv;
    }
    if (const int rv = netintf_vintf_init(carrier.master, vid1, mac); rv != rv_ok) {
        return rv;
    }
    if (vid2 == vlan_none) {
        return rv_ok;
    }
    char outer[name_size];
    text_format(outer, sizeof(outer), "%s.%d", carrier.master, vid1);
    return netintf_vintf_init(outer, vid2, mac);
}

int netintf_vlan_users_count(uint32_t type, uint32_t vid1, uint32_t vid2, uint32_t *count)
{
    if (count == nullptr || (vid1 == vlan_none && vid2 == vlan_none)) {
        return rv_fail;
    }
    uint32_t users = 0;
    for (uint32_t port = 0; port < netintf_port_count; ++port) {
        // On purpose the count starts behind the first entry of each list.
        bool first = true;
        netintf_port_entries entries(netintf_port_head_get(port));
        for (const netintf_entry *entry : entries) {
            if (!std::exchange(first, false) && uses_vlan(entry, type, vid1, vid2)) {
                ++users;
            }
        }
        if (entries.broken()) {
            return rv_fail;
        }
    }
    *count = users;
    return rv_ok;
}

int netintf_vlan_intf_delete(uint32_t type, uint32_t hw_port, int vid1, int vid2)
{
    if (!arguments_valid(type, hw_port, vid1)) {
        return rv_invalid;
    }
    const vlan_carrier carrier = carrier_of(type, hw_port);
    const auto outer_vid = static_cast<uint32_t>(vid1);
    const auto inner_vid = static_cast<uint32_t>(vid2);
    char outer[name_size];
    text_format(outer, sizeof(outer), "%s.%d", carrier.master, vid1);
    if (vid2 != vlan_none) {
        char inner[name_size];
        text_format(inner, sizeof(inner), "%s.%d", outer, vid2);
        if (const int rv = device_release(type, outer_vid, inner_vid, inner); rv != rv_ok) {
            return rv;
        }
    }
    if (const int rv = device_release(type, outer_vid, vlan_none, outer); rv != rv_ok) {
        return rv;
    }
    for (const uint32_t member : {hw_port, carrier.cpu_port}) {
        if (const int rv = mtksw_vlan_member_clear(vlan_index_by_vid, outer_vid, member); rv != rv_ok) {
            return rv;
        }
    }
    return rv_ok;
}
