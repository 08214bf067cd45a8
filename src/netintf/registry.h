// The registry of layer-3 interfaces: one record for each LAN or WAN interface, on a circular list for each
// hardware port. It knows records and names; it touches neither kernel nor switch.
//
// The registry owns every record from netintf_l3intf_init to netintf_entry_free. The list heads live as long
// as the process. Records keep the order of their creation; the first match of a lookup wins. Names are
// unique by convention of the callers, not enforced.
#pragma once

#include "board/vlan.h"
#include "core/mac.h"
#include "core/text.h"

#include <stdint.h>
#include <stdlib.h>

constexpr uint32_t netintf_port_count = front_port_count;

constexpr int32_t defrt_pri_default = 20001;

constexpr uint32_t intf_type_none = 0;
constexpr uint32_t intf_type_lan = 1;
constexpr uint32_t intf_type_wan = 2;

enum netintf_proto : uint32_t { proto_none, proto_static, proto_dhcp, proto_pppoe };

struct netintf_entry {
    uint32_t state;     // always 2
    uint32_t hw_port;   // the switch port under the interface, and the list the record is on
    uint32_t intf_type; // LAN, WAN; none in a head that serves neither
    char name[name_size];
    uint32_t in_use; // always 1
    uint32_t enable; // administrative, 0 or 1
    uint64_t rx_bytes;
    uint64_t rx_bytes_prev;
    uint64_t rx_rate; // bytes per second
    uint64_t tx_bytes;
    uint64_t tx_bytes_prev;
    uint64_t tx_rate;
    uint32_t link;    // of the head's port; meaningful in heads alone
    int16_t port_vid; // 4090 + hw_port, or -1 for an interface on a user VLAN
    uint16_t vlanid1; // outer VLAN ID, or vlan_none
    uint16_t vlanid2; // inner VLAN ID, or vlan_none
    uint8_t mac[mac_size];
    uint32_t ipaddr; // network byte order, as the next two
    uint32_t netmask;
    uint32_t gateway;
    uint32_t reserved[2]; // zero
    int32_t defrt_pri;    // default-route priority of a WAN, also the number of its policy route
    netintf_proto proto;
    netintf_entry *next;
    netintf_entry *prev;
};

// Array of netintf_port_count list heads; null until netintf_registry_init.
extern netintf_entry *netintf_registry;

// Bit p: port p has had its one-time set-up as a LAN (WAN) port.
extern uint8_t netintf_lan_port_mask;
extern uint8_t netintf_wan_port_mask;

// Creates the list heads, all empty and their ports' links down. 0, rv_no_memory, or the link query's error.
int netintf_registry_init();

// LAN or WAN by the first three characters of a name; none for any other name and for null.
uint32_t netintf_type_of(const char *name);

// The number after "lan" or "wan", 0 when there is none; the rest of the name is ignored.
inline int netintf_number_of(const char *name)
{
    return atoi(name + 3);
}

// The hardware port under an interface name. 0, or rv_fail and *port 15 when the name is neither LAN nor WAN
// or its port is not a front port; an error of the board map comes as it is, *port then untouched. A null
// port is an error too.
int netintf_hwport_get_byname(const char *name, uint32_t *port);

// Appends a record to a port's list (port below 5; name cut at 31 characters; mac 6 bytes). Null when memory
// is exhausted, the lists unchanged.
netintf_entry *netintf_l3intf_init(uint32_t port, const char *name, uint32_t type, const uint8_t *mac,
                                   uint16_t vlanid1, uint16_t vlanid2);

// The first record of exactly this name on the list of the name's port, or null.
netintf_entry *netintf_entry_find_byname(const char *name);

// The list head of a port; null for ports of 5 and above, and while there is no registry.
netintf_entry *netintf_port_head_get(uint32_t port);

// The link of the port under a name, 1 up, 0 down. LAN 1's port always counts as up. 0 or an error, *link
// then untouched.
int netintf_link_get_byname(const char *name, uint32_t *link);

// Unlinks, clears and frees a record. 0, or rv_fail for what is neither LAN nor WAN, which stays.
int netintf_entry_free(netintf_entry *entry);

// The records of one port, in order, for a single loop. The loop may free the record it stands on. It ends at
// the list's head, or at a null link, as a head that is null has one: broken() then says so.
class netintf_port_entries {
public:
    explicit netintf_port_entries(netintf_entry *head)
        : head_(head), next_(head != nullptr ? head->next : nullptr)
    {
        advance();
    }
    bool broken() const { return next_ == nullptr; }

    struct iterator {
        netintf_port_entries *entries;
        netintf_entry *operator*() const { return entries->entry_; }
        void operator++() { entries->advance(); }
        bool operator!=(decltype(nullptr)) const { return entries->entry_ != nullptr; }
    };
    iterator begin() { return {this}; }
    decltype(nullptr) end() { return nullptr; }

private:
    void advance()
    {
        entry_ = next_ == head_ ? nullptr : next_;
        if (entry_ != nullptr) {
            next_ = entry_->next;
        }
    }

    netintf_entry *head_;
    netintf_entry *next_;
    netintf_entry *entry_ = nullptr;
};
