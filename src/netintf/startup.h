// Interfaces at start-up: the registry, the switch's layout, and every interface that UCI names.
#pragma once

struct uci_context;
struct uci_section;

// Builds the registry and creates the configured interfaces, LANs before WANs, then starts the statistics
// timer. 0 or the first failing step's code, which is reported; interfaces created before a failure stay.
int netintf_lan_init();

// The pass after the start-up: PHYs programmed, five seconds for their links, interfaces of linked ports
// brought up. Returns 0.
int netintf_init_post();

// One section of type "interface" of package "lan_intf" (or "wan_intf"): creates the interface. 0 to go on;
// sections whose names begin otherwise are passed over.
int netintf_uci_lan_parse_each(struct uci_context *ctx, struct uci_section *section, void *arg);
int netintf_uci_wan_parse_each(struct uci_context *ctx, struct uci_section *section, void *arg);
