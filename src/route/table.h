// Named static routes, installed into routing table 10000.
//
// The list owns its records. Addresses stay text. Names are unique by convention only: lookups reach the
// oldest record of a name. A route that the kernel refuses is not reported, and its record stays.
#pragma once

#include "core/text.h"

#include <libubus.h>
#include <stdint.h>

struct uci_context;
struct uci_section;

constexpr uint32_t route_cfg_table = 10000; // the routing table's number, and the policy rule's

struct route_cfg_entry {
    char name[name_size];
    char line[name_size]; // output device; a text beginning with "auto": the kernel chooses
    char dstaddr[name_size];
    char netmask[name_size];
    char gateway[name_size];
    int32_t metric;
    uint32_t enable; // 1: installed
    struct list_head links;
};

// Records in the order of their creation. The counter counts creations; deleting does not decrease it.
struct route_cfg_list {
    struct list_head head;
    uint32_t route_cfg_count;
};

// The texts of a new or changed route; each may be null.
struct route_cfg_texts {
    const char *name;
    const char *line;
    const char *dstaddr;
    const char *netmask;
    const char *gateway;
    const char *metric; // decimal; 0 when null
};

const struct route_cfg_list &route_cfg_list_get();

// Empties the list, then loads package "route_config". 0 or rv_fail.
int route_cfg_init();

// One section of type "route": its name is the route's; missing options leave their fields empty. The result
// of creating it.
int route_cfg_entry_uci_load(struct uci_context *ctx, struct uci_section *section, void *arg);

// Lays the policy rule that makes the kernel consult the table. Returns 0.
int route_cfg_rule_init();

// Appends a route, and installs it when enable is 1. 0 or rv_no_memory.
int route_cfg_entry_new(uint32_t enable, const route_cfg_texts &texts);

route_cfg_entry *route_cfg_entry_find(const char *name);

// Rewrites a route: withdrawn with its old fields, installed with the new ones if enabled. 0 or rv_invalid
// when no route has the name.
int route_cfg_entry_edit(const route_cfg_texts &texts);

// Stores enable and installs (1) or withdraws (else) the route. 0 or rv_fail when no route has the name.
int route_cfg_entry_enable(const char *name, uint32_t enable);

// Withdraws and removes a route. 0 or rv_fail when no route has the name.
int route_cfg_entry_del(const char *name);

// One route in the kernel. 0 or rv_route.
int route_cfg_entry_rt_add(const char *line, const char *dstaddr, const char *netmask, const char *gateway,
                           int metric);
int route_cfg_entry_rt_del(const char *line, const char *dstaddr, const char *netmask, const char *gateway,
                           int metric);
