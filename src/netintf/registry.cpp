#include "netintf/registry.h"

#include "board/board_map.h"
#include "board/switch_port.h"
#include "core/result.h"

#include <string.h>

netintf_entry *netintf_registry;
uint8_t netintf_lan_port_mask;
uint8_t netintf_wan_port_mask;

namespace {

constexpr uint32_t entry_state = 2;
constexpr uint32_t no_hw_port = 15;

// Heads say hardware port 0 until their port is set up as a LAN or WAN port.
void head_init(netintf_entry *head)
{
    head->state = entry_state;
    head->hw_port = 0;
    head->intf_type = intf_type_none;
    head->port_vid = static_cast<int16_t>(port_vlan_base);
    head->in_use = 1;
    head->next = head;
    head->prev = head;
}

} // namespace

int netintf_registry_init()
{
    netintf_registry = static_cast<netintf_entry *>(calloc(netintf_port_count, sizeof(netintf_entry)));
    if (netintf_registry == nullptr) {
        return rv_no_memory;
    }
    for (uint32_t port = 0; port < netintf_port_count; ++port) {
        netintf_entry *head = &netintf_registry[port];
        head_init(head);
        uint32_t link = 0;
        if (const int rv = mtksw_port_link_get(port, &link); rv != rv_ok) {
            return rv;
        }
        head->link = link;
    }
    return rv_ok;
}

uint32_t netintf_type_of(const char *name)
{
    if (name == nullptr) {
        return intf_type_none;
    }
    if (text_begins(name, "lan")) {
        return intf_type_lan;
    }
    return text_begins(name, "wan") ? intf_type_wan : intf_type_none;
}

int netintf_hwport_get_byname(const char *name, uint32_t *port)
{
    if (const uint32_t type = netintf_type_of(name); type != intf_type_none) {
        const auto number = static_cast<uint32_t>(netintf_number_of(name));
        const int rv =
            type == intf_type_lan ? netbd_lan_hwport_get(number, port) : netbd_wan_hwport_get(number, port);
        if (rv != rv_ok || *port < netintf_port_count) {
            return rv;
        }
    }
    if (port != nullptr) {
        *port = no_hw_port;
    }
    return rv_fail;
}

netintf_entry *netintf_l3intf_init(uint32_t port, const char *name, uint32_t type, const uint8_t *mac,
                                   uint16_t vlanid1, uint16_t vlanid2)
{
    auto *entry = static_cast<netintf_entry *>(calloc(1, sizeof(netintf_entry)));
    if (entry == nullptr) {
        return nullptr;
    }
    netintf_entry *head = &netintf_registry[port];
    entry->prev = head->prev;
    entry->next = head;
    head->prev->next = entry;
    head->prev = entry;

    entry->state = entry_state;
    entry->hw_port = port;
    entry->intf_type = type;
    text_copy(entry->name, name);
    entry->port_vid = static_cast<int16_t>(vlanid1 != vlan_none ? -1 : static_cast<int>(port_vlan(port)));
    entry->vlanid1 = vlanid1;
    entry->vlanid2 = vlanid2;
    mac_copy(entry->mac, mac);
    entry->in_use = 1;
    entry->enable = 1;
    return entry;
}

netintf_entry *netintf_entry_find_byname(const char *name)
{
    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        return nullptr;
    }
    for (netintf_entry *entry : netintf_port_entries(netintf_port_head_get(port))) {
        if (name_equals(entry->name, name)) {
            return entry;
        }
    }
    return nullptr;
}

netintf_entry *netintf_port_head_get(uint32_t port)
{
    return netintf_registry != nullptr && port < netintf_port_count ? &netintf_registry[port] : nullptr;
}

int netintf_link_get_byname(const char *name, uint32_t *link)
{
    uint32_t port = 0;
    if (const int rv = netintf_hwport_get_byname(name, &port); rv != rv_ok) {
        return rv;
    }
    uint32_t lan1_port = 0;
    if (const int rv = netbd_lan_hwport_get(1, &lan1_port); rv != rv_ok) {
        return rv;
    }
    if (port == lan1_port) {
        *link = 1;
        return rv_ok;
    }
    const netintf_entry *head = netintf_port_head_get(port);
    if (head == nullptr) {
        return rv_fail;
    }
    *link = head->link;
    return rv_ok;
}

int netintf_entry_free(netintf_entry *entry)
{
    if (entry->intf_type != intf_type_lan && entry->intf_type != intf_type_wan) {
        return rv_fail;
    }
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
    // A memset before free is dropped by the compiler.
    explicit_bzero(entry, sizeof(*entry));
    free(entry);
    return rv_ok;
}
