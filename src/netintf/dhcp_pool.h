// Handing the configured DHCP server pools to the DHCP server.
//
// An entry point for a later caller: neither start-up nor a bus method uses it. Nothing is logged.
#pragma once

struct uci_context;
struct uci_section;

// Pushes every enabled pool of package "dhcp". 0 or rv_uci.
int netintf_dhcps_init();

// One section of type "dhcp". 0 also for a disabled pool; rv_uci without "enable" or "lease_time"; else the
// push's result.
int netintf_dhcps_uci_parse_each(struct uci_context *ctx, struct uci_section *section, void *arg);

// Sends one pool; lease time in seconds. 0, rv_invalid when a text is null (nothing is sent), rv_bus.
int netintf_dhcps_pool_push(const char *name, const char *intf, const char *ipstart, const char *ipend,
                            const char *ipmask, const char *route, const char *dnsmajor, const char *dnsminor,
                            int lease_time);

// Adds one text field to the daemon's message buffer. 0, or -1 when the buffer cannot grow.
int netintf_dhcps_add_string(const char *field, const char *value);
