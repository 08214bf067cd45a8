// Reading the options that LAN and WAN sections share.
#pragma once

#include "netintf/registry.h"

#include <stdint.h>

struct uci_context;
struct uci_section;

// One section of a running walk; texts live as long as the walk.
class uci_options {
public:
    uci_options(struct uci_context *ctx, struct uci_section *section) : ctx_(ctx), section_(section) {}
    // The section's own name.
    const char *name() const;
    // An option's text, or null.
    const char *text(const char *option) const;
    // An option's decimal value.
    int number(const char *option, int absent) const;
    // A VLAN ID, 16 bits, vlan_none when absent.
    uint16_t vlan(const char *option) const;

private:
    struct uci_context *ctx_;
    struct uci_section *section_;
};

// Six hexadecimal bytes; missing ones are left unchanged.
void netintf_mac_parse(const char *text, uint8_t *mac);

// A configured MAC: the text's; without one, for the default interfaces kind1_default to kind4_default the
// base MAC plus the port's sequence number, for others all zero (the device's own is then taken). 0, or the
// error of the sequence lookup.
int netintf_section_mac(const char *kind, const char *section, const char *text, uint32_t hw_port,
                        uint8_t *mac);

// The one-time set-up of a port as LAN or WAN port; mask holds the ports that have had it. 0 or rv_fail.
int netintf_port_init_once(uint8_t *mask, uint32_t type, int number, uint32_t hw_port);
