// The registry of layer-3 interfaces: one record for each LAN or WAN interface, on a circular list for each
// hardware port. It knows records and names; it touches neither kernel nor switch.
//
// The registry owns every record from netintf_l3intf_init to netintf_entry_free. The list heads live as long
// as the process. Records keep the order of their creation; the first match of a lookup wins. Names are
// unique by convention of the callers, not enforced.
#pragma once

#include "board/vlan.h"
#include "core/text.h"

#include <stdint.h>

constexpr uint32_t netintf_port_count = front_port_count;

constexpr uint32_t intf_type_lan = 1;
constexpr uint32_t intf_type_wan = 2;

constexpr int32_t defrt_pri_default = 20001;

enum netintf_proto : uint32_t { proto_none, proto_static, proto_dhcp, proto_pppoe };

struct netintf_entry {
    uint32_t state;     // always 2
    uint32_t hw_port;   // the switch port under the interface, and the list the record is on
    uint32_t intf_type; // LAN, WAN; 0 in a head that serves neither
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
    int16_t port_vid; // 4090 + hw_port, or -1 for an interface on a VLAN of its own
    uint16_t vlanid1; // outer VLAN ID, or vlan_none
    uint16_t vlanid2; // inner VLAN ID, or vlan_none
    uint8_t mac[6];
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

// The hardware port under an interface name: "lan" or "wan" and a number, whatever follows. 0, or an error;
// *port is 15 when the name is neither or its port is not a front port.
int netintf_hwport_get_byname(const char *name, uint32_t *port);

// Appends a record to a port's list (port below 5; name cut at 31 characters; mac 6 bytes). Null when memory
// is exhausted, the lists unchanged.
netintf_entry *netintf_l3intf_init(uint32_t port, const char *name, uint32_t type, const uint8_t *mac,
                                   uint16_t vlanid1, uint16_t vlanid2);

// The first record of exactly this name on the list of the name's port, or null.
netintf_entry *netintf_entry_find_byname(const char *name);

// Looks for many names, none of them twice, with the results of netintf_entry_find_byname. Cheap as long as
// the names of each port come in the order of its records; the kernel lists devices in the order of their
// making. Records must neither come nor go meanwhile.
class netintf_finder {
public:
    netintf_finder();
    netintf_entry *find(const char *name);

private:
    netintf_entry *due_[netintf_port_count]; // null once the names of the port came in another order
};

// The list head of a port, or null for ports of 5 and above.
netintf_entry *netintf_port_head_get(uint32_t port);

// The link of the port under a name, 1 up, 0 down. LAN 1's port always counts as up. 0 or an error, *link
// then untouched.
int netintf_link_get_byname(const char *name, uint32_t *link);

// Unlinks, clears and frees a record. 0, or rv_fail for what is neither LAN nor WAN, which stays.
int netintf_entry_free(netintf_entry *entry);
