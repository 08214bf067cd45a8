#include "netintf/registry.h"

#include "board/board_map.h"
#include "board/switch_port.h"
#include "core/result.h"

#include <stdlib.h>
#include <string.h>
#include <utility>

netintf_entry *netintf_registry;
uint8_t netintf_lan_port_mask;
uint8_t netintf_wan_port_mask;

namespace {

constexpr uint32_t entry_state = 2;
constexpr uint32_t no_hw_port = 15;

// Heads say hardware port 0 until their port serves a LAN or WAN of its own.
void head_init(netintf_entry *head)
{
    head->state = entry_state;
    head->hw_port = 0;
    head->intf_type = 0;
    head->port_vid = static_cast<int16_t>(port_vlan_base);
    head->in_use = 1;
    head->next = head;
    head->prev = head;
}

netintf_entry *entry_find_on_port(uint32_t port, const char *name, const char *func, int line)
{
    netintf_entry *head = &netintf_registry[port];
    for (netintf_entry *entry = head->next; entry != nullptr && entry != head; entry = entry->next) {
        if (strncmp_safe_record(entry->name, name, name_size, func, line) == 0) {
            return entry;
        }
    }
    return nullptr;
}

} // namespace

int netintf_registry_init()
{
    netintf_registry = static_cast<netintf_entry *>(calloc(netintf_port_count, sizeof(netintf_entry)));
    if (netintf_registry == nullptr) {
        return rv_no_memory;
    }
    for (uint32_t port = 0; port < netintf_port_count; port++) {
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

int netintf_hwport_get_byname(const char *name, uint32_t *port)
{
    int rv = rv_fail;
    *port = no_hw_port;
    if (name == nullptr) {
        return rv;
    }
    if (text_begins(name, "lan", __func__, __LINE__)) {
        rv = netbd_lan_hwport_get(static_cast<uint32_t>(atoi(name + 3)), port);
    } else if (text_begins(name, "wan", __func__, __LINE__)) {
        rv = netbd_wan_hwport_get(static_cast<uint32_t>(atoi(name + 3)), port);
    }
    if (rv != rv_ok) {
        return rv;
    }
    if (*port >= netintf_port_count) {
        *port = no_hw_port;
        return rv_fail;
    }
    return rv_ok;
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
    text_copy(entry->name, name, __func__, __LINE__);
    entry->port_vid = static_cast<int16_t>(vlanid1 != vlan_none ? -1 : static_cast<int>(port_vlan(port)));
    entry->vlanid1 = vlanid1;
    entry->vlanid2 = vlanid2;
    memcpy_safe_record(entry->mac, sizeof(entry->mac), mac, sizeof(entry->mac), __func__, __LINE__);
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
    return entry_find_on_port(port, name, __func__, __LINE__);
}

netintf_finder::netintf_finder()
{
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        due_[port] = netintf_registry[port].next;
    }
}

netintf_entry *netintf_finder::find(const char *name)
{
    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        return nullptr;
    }
    // While every record of a port was due and found, none before the next one can have the name.
    netintf_entry *&due = due_[port];
    if (due != nullptr && due != &netintf_registry[port] &&
        strncmp_safe_record(due->name, name, name_size, __func__, __LINE__) == 0) {
        return std::exchange(due, due->next);
    }
    netintf_entry *entry = entry_find_on_port(port, name, __func__, __LINE__);
    if (entry != nullptr) {
        due = nullptr;
    }
    return entry;
}

netintf_entry *netintf_port_head_get(uint32_t port)
{
    return port < netintf_port_count ? &netintf_registry[port] : nullptr;
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
    memset(entry, 0, sizeof(*entry));
    free(entry);
    return rv_ok;
}
