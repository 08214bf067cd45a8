#include "netintf/dhcp_pool.h"

#include "core/result.h"
#include "netintf/reply.h"
#include "netintf/uci_options.h"
#include "platform/bus.h"
#include "platform/config.h"

#include <stdlib.h>

int netintf_dhcps_add_string(const char *field, const char *value)
{
    return netintf_bmsg_add_string(field, value);
}

int netintf_dhcps_pool_push(const char *name, const char *intf, const char *ipstart, const char *ipend,
                            const char *ipmask, const char *route, const char *dnsmajor, const char *dnsminor,
                            int lease_time)
{
    struct pool_field {
        const char *name;
        const char *value;
    };
    const pool_field fields[] = {
        {"name", name},     {"intf", intf},   {"ipstart", ipstart},   {"ipend", ipend},
        {"ipmask", ipmask}, {"route", route}, {"dnsmajor", dnsmajor}, {"dnsminor", dnsminor},
    };
    for (const pool_field &field : fields) {
        if (field.value == nullptr) {
            return rv_invalid;
        }
    }
    if (blob_buf_init(&netintf_reply, BLOBMSG_TYPE_TABLE) != 0) {
        return rv_bus;
    }
    for (const pool_field &field : fields) {
        if (netintf_dhcps_add_string(field.name, field.value) != 0) {
            return rv_bus;
        }
    }
    if (blobmsg_add_u32(&netintf_reply, "lease_time", static_cast<uint32_t>(lease_time)) != 0) {
        return rv_bus;
    }
    return ubuslib_invoke_call("dnsmasq.dhcp", "add", &netintf_reply, nullptr, nullptr) == 0 ? rv_ok : rv_bus;
}

int netintf_dhcps_uci_parse_each(struct uci_context *ctx, struct uci_section *section, void *)
{
    const uci_options options(ctx, section);
    const char *enable = options.text("enable");
    if (enable == nullptr) {
        return rv_uci;
    }
    if (atoi(enable) == 0) {
        return rv_ok;
    }
    const char *lease_time = options.text("lease_time");
    if (lease_time == nullptr) {
        return rv_uci;
    }
    const char *intf = options.text("intf");
    const char *ipstart = options.text("ipstart");
    const char *ipend = options.text("ipend");
    const char *ipmask = options.text("ipmask");
    const char *route = options.text("route");
    const char *dnsmajor = options.text("dnsmajor");
    const char *dnsminor = options.text("dnsminor");
    return netintf_dhcps_pool_push(options.name(), intf, ipstart, ipend, ipmask, route, dnsmajor, dnsminor,
                                   atoi(lease_time));
}

int netintf_dhcps_init()
{
    return ucilib_foreach_section("dhcp", "dhcp", netintf_dhcps_uci_parse_each, nullptr) == 0 ? rv_ok
                                                                                              : rv_uci;
}
