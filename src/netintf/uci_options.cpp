#include "netintf/uci_options.h"

#include "board/board_map.h"
#include "core/result.h"
#include "netintf/device.h"
#include "netintf/port_device.h"
#include "platform/config.h"

#include <stdio.h>
#include <stdlib.h>
#include <uci.h>

const char *uci_options::name() const
{
    return section_->e.name;
}

const char *uci_options::text(const char *option) const
{
    return ucilib_lookup_option_string(ctx_, section_, option, nullptr);
}

int uci_options::number(const char *option, int absent) const
{
    const char *value = text(option);
    return value != nullptr ? atoi(value) : absent;
}

uint16_t uci_options::vlan(const char *option) const
{
    return static_cast<uint16_t>(number(option, vlan_none));
}

void netintf_mac_parse(const char *text, uint8_t *mac)
{
    sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]);
}

int netintf_section_mac(const char *kind, const char *section, const char *text, uint32_t hw_port,
                        uint8_t *mac)
{
    constexpr int default_count = 4;
    if (text != nullptr) {
        netintf_mac_parse(text, mac);
        return rv_ok;
    }
    for (int number = 1; number <= default_count; ++number) {
        char name[name_size];
        text_format(name, sizeof(name), "%s%d_default", kind, number);
        if (!name_equals(section, name)) {
            continue;
        }
        uint32_t sequence = 0;
        if (const int rv = netbd_seqport_get(hw_port, &sequence); rv != rv_ok) {
            return rv;
        }
        return netintf_port_mac_get(sequence, mac);
    }
    return rv_ok;
}

int netintf_port_init_once(uint8_t *mask, uint32_t type, int number, uint32_t hw_port)
{
    const auto bit = static_cast<uint8_t>(port_bit(hw_port));
    if ((*mask & bit) != 0) {
        return rv_ok;
    }
    if (netintf_port_init(type, number, hw_port) != rv_ok) {
        return rv_fail;
    }
    *mask = static_cast<uint8_t>(*mask | bit);
    return rv_ok;
}
