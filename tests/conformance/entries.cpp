// Calls one of the daemon's operations that nothing in the daemon calls: they are part of it, kept for later
// callers, and reached from no request or event. The result is the exit status.
//
//   entries NAME [ARGUMENT]...

#include "board/board_map.h"
#include "board/switch_mii.h"
#include "board/vlan_table.h"
#include "core/bus_objects.h"
#include "core/exit.h"
#include "core/log.h"
#include "firewall/chains.h"
#include "netintf/dhcp_pool.h"
#include "netintf/events.h"
#include "netintf/proto.h"
#include "netintf/registry.h"
#include "netintf/startup.h"
#include "platform/output.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

char **words;
int word_count;

const char *word(int index)
{
    return index < word_count ? words[index] : "";
}

uint32_t number(int index)
{
    return static_cast<uint32_t>(std::strtoul(word(index), nullptr, 0));
}

void show(uint32_t value)
{
    outlib_notice("value=0x%x\n", value);
}

// The entry of a name, with the board and the configured interfaces brought up first.
netintf_entry *configured(const char *name)
{
    if (netbd_lan_wan_init() != 0 || netintf_lan_init() != 0) {
        return nullptr;
    }
    return netintf_entry_find_byname(name);
}

int mii_read()
{
    uint32_t value = 0;
    const int rv = mtksw_mii_read(number(0), number(1), &value);
    if (rv == 0) {
        show(value);
    }
    return rv;
}

int vlan_entry_get()
{
    uint32_t vid = 0xffffffff;
    uint32_t members = 0xffffffff;
    const int rv = mtksw_vlan_entry_get(number(0), &vid, &members);
    show(vid);
    show(members);
    return rv;
}

int seqport_get()
{
    netbd_lan_wan_init();
    uint32_t sequence = 0;
    const int rv = netbd_seqport_get(number(0), &sequence);
    if (rv == 0) {
        show(sequence);
    }
    return rv;
}

int wan_addr_reset()
{
    netintf_entry *entry = configured(word(0));
    return entry == nullptr ? 100 : netevt_wan_addr_reset(entry);
}

int pppoe_without_start()
{
    netintf_entry *entry = configured(word(0));
    if (entry == nullptr) {
        return 100;
    }
    const int rv = netintf_proto_config_pppoe(entry, 0, nullptr, nullptr, nullptr);
    show(static_cast<uint32_t>(entry->proto));
    return rv;
}

int entry_free_of_head()
{
    return configured("lan1") == nullptr ? 100 : netintf_entry_free(netintf_port_head_get(3));
}

int link_get_byname()
{
    configured("lan1");
    uint32_t link = 7;
    const int rv = netintf_link_get_byname(word(0), &link);
    show(link);
    return rv;
}

int hwport_get_byname()
{
    netbd_lan_wan_init();
    uint32_t port = 99;
    const int rv = netintf_hwport_get_byname(word(0), &port);
    show(port);
    return rv;
}

int log_null()
{
    const char *none = nullptr;
    return ivarode_log(LOG_ERR, none);
}

struct operation {
    const char *name;
    int (*run)();
};

constexpr operation operations[] = {
    {"netintf_dhcps_init", [] { return netintf_dhcps_init(); }},
    {"netevt_wan_addr_reset", wan_addr_reset},
    {"netevt_proto_param_get", [] { return netevt_proto_param_get(nullptr, word(0)); }},
    {"netevt_proto_param_get_null", [] { return netevt_proto_param_get(nullptr, nullptr); }},
    {"mtksw_reg_read_null", [] { return mtksw_reg_read(number(0), nullptr); }},
    {"mtksw_mii_read", mii_read},
    {"mtksw_phy_power_down", [] { return mtksw_phy_power_down(number(0)); }},
    {"mtksw_phy_power_up", [] { return mtksw_phy_power_up(number(0)); }},
    {"mtksw_phy_power_up_all", [] { return mtksw_phy_power_up_all(); }},
    {"mtksw_vlan_entry_set", [] { return mtksw_vlan_entry_set(number(0), number(1), number(2)); }},
    {"mtksw_vlan_entry_get", vlan_entry_get},
    {"netbd_seqport_get", seqport_get},
    {"netbd_lan_hwport_get_null", [] { return netbd_lan_hwport_get(1, nullptr); }},
    {"netintf_proto_config_pppoe_0", pppoe_without_start},
    {"netintf_entry_free_head", entry_free_of_head},
    {"netintf_link_get_byname", link_get_byname},
    {"netintf_hwport_get_byname", hwport_get_byname},
    {"netpre_input_drop_rule", [] { return netpre_input_drop_rule(word(0), static_cast<int>(number(1))); }},
    {"netpre_ssh_drop_rule", [] { return netpre_ssh_drop_rule(word(0), static_cast<int>(number(1))); }},
    {"ivarode_log_null", log_null},
    {"ivarode_main_exit",
     [] {
         ivarode_main_exit();
         return 0;
     }},
    {"ivarode_sig_handler", [] { return ivarode_sig_handler(static_cast<int>(number(0))); }},
    {"ivarode_sig_init", [] { return ivarode_sig_init(); }},
    {"ivarode_ubus_exit", [] { return ivarode_ubus_exit(1, nullptr, 5); }},
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fputs("usage: entries NAME [ARGUMENT]...\n", stderr);
        return 2;
    }
    words = argv + 2;
    word_count = argc - 2;
    for (const operation &candidate : operations) {
        if (std::strcmp(argv[1], candidate.name) == 0) {
            return candidate.run() & 0xff;
        }
    }
    std::fprintf(stderr, "entries: no operation %s\n", argv[1]);
    return 2;
}
