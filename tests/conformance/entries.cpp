// Calls one operation of the daemon by itself and ends with its result as the exit status: operations that
// nothing in the daemon calls, arguments that none of its callers gives, and results that its callers do not
// tell apart.
//
//   entries NAME [ARGUMENT]...

#include "board/board_map.h"
#include "board/switch_mii.h"
#include "board/switch_port.h"
#include "board/vlan_table.h"
#include "core/bus_objects.h"
#include "core/exit.h"
#include "core/log.h"
#include "firewall/chains.h"
#include "netintf/bridge.h"
#include "netintf/device.h"
#include "netintf/dhcp_pool.h"
#include "netintf/events.h"
#include "netintf/lifecycle.h"
#include "netintf/port_device.h"
#include "netintf/proto.h"
#include "netintf/registry.h"
#include "netintf/startup.h"
#include "netintf/uci_options.h"
#include "netintf/vlan_intf.h"
#include "platform/output.h"
#include "ppp/auth_records.h"
#include "route/address_event.h"
#include "route/table.h"

#include <algorithm>
#include <csignal>
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

// The argument, or null where it is the word "null".
const char *text(int index)
{
    return std::strcmp(word(index), "null") == 0 ? nullptr : word(index);
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

// An operation on the configured interface of the first word.
int with_entry(int (*operation)(netintf_entry *entry))
{
    netintf_entry *entry = configured(word(0));
    return entry == nullptr ? 100 : operation(entry);
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

int vlan_entry_find()
{
    show(static_cast<uint32_t>(mtksw_vlan_entry_find(number(0), static_cast<int>(number(1)))));
    return 0;
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

int wan_addr_reset(netintf_entry *entry)
{
    if (word_count > 1) {
        entry->proto = proto_none;
    }
    entry->reserved[0] = entry->reserved[1] = 7;
    const int rv = netevt_wan_addr_reset(entry);
    show(entry->ipaddr | entry->netmask | entry->gateway | entry->reserved[0] | entry->reserved[1]);
    return rv;
}

// Name, number of starts, server, user, password.
int proto_config_pppoe(netintf_entry *entry)
{
    entry->proto = proto_none;
    const int rv = netintf_proto_config_pppoe(entry, number(1), text(2), text(3), text(4));
    show(static_cast<uint32_t>(entry->proto));
    return rv;
}

// Name, priority.
int proto_config_static(netintf_entry *entry)
{
    const int rv = netintf_proto_config_static(entry, "192.0.2.2", "255.255.255.0", "192.0.2.1",
                                               static_cast<int>(number(1)));
    show(static_cast<uint32_t>(entry->defrt_pri));
    return rv;
}

int proto_config_dhcp(netintf_entry *entry)
{
    entry->proto = proto_none;
    const int rv = netintf_proto_config_dhcp(entry);
    show(static_cast<uint32_t>(entry->proto));
    return rv;
}

int device_mac_get()
{
    netbd_lan_wan_init();
    uint8_t mac[mac_size] = {};
    const int rv = netintf_device_mac_get(number(0), mac);
    outlib_notice("mac=%02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return rv;
}

// Whatever board there is, with no interface and none of its reports in the way.
void board_and_registry()
{
    netbd_lan_wan_init();
    netintf_registry_init();
}

constexpr uint8_t some_mac[mac_size] = {2, 0, 0, 0, 0, 1};

// Name, protocol, port, VLAN IDs.
int bridge_create()
{
    board_and_registry();
    return netintf_bridge_create(word(0), number(1), number(2), some_mac, static_cast<uint16_t>(number(3)),
                                 static_cast<uint16_t>(number(4)), 1);
}

int bridge_delete()
{
    board_and_registry();
    return netintf_bridge_delete(word(0), number(1), number(2), static_cast<int>(number(3)),
                                 static_cast<int>(number(4)));
}

int link_get_on_board()
{
    board_and_registry();
    uint32_t link = 7;
    const int rv = netintf_link_get_byname(word(0), &link);
    show(link);
    return rv;
}

// A port's link that comes (1) or goes (0); the link that its list head then says.
int proto_intf()
{
    board_and_registry();
    netintf_entry *head = netintf_port_head_get(number(0));
    head->link = 1 - number(1);
    const int rv = number(1) != 0 ? netintf_proto_intf_up(head) : netintf_proto_intf_down(head);
    show(head->link);
    return rv;
}

// Kind, section, text of option "mac", port.
int section_mac()
{
    netbd_lan_wan_init();
    uint8_t mac[mac_size] = {};
    const int rv = netintf_section_mac(word(0), word(1), text(2), number(3), mac);
    outlib_notice("mac=%02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return rv;
}

int vlan_users_count()
{
    board_and_registry();
    uint32_t users = 7;
    const int rv = netintf_vlan_users_count(number(0), number(1), number(2), &users);
    show(users);
    return rv;
}

int entry_free_of_head()
{
    return configured("lan1") == nullptr ? 100 : netintf_entry_free(netintf_port_head_get(3));
}

// Watched while a record is given back: whether its bytes are zero by then.
const unsigned char *watched = nullptr;
bool cleared = false;

int entry_free()
{
    netintf_entry *entry = configured("lan1");
    if (entry == nullptr) {
        return 100;
    }
    watched = reinterpret_cast<const unsigned char *>(entry);
    const int rv = netintf_entry_free(entry);
    show(cleared ? 1 : 0);
    return rv;
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
    {"netevt_wan_addr_reset", [] { return with_entry(wan_addr_reset); }},
    {"netevt_proto_param_get", [] { return netevt_proto_param_get(nullptr, word(0)); }},
    {"netevt_proto_param_get_null", [] { return netevt_proto_param_get(nullptr, nullptr); }},
    {"mtksw_reg_read_null", [] { return mtksw_reg_read(number(0), nullptr); }},
    {"mtksw_reg_write", [] { return mtksw_reg_write(number(0), number(1)); }},
    {"mtksw_mii_read", mii_read},
    {"mtksw_mii_write", [] { return mtksw_mii_write(number(0), number(1), number(2)); }},
    {"mtksw_phy_power_down", [] { return mtksw_phy_power_down(number(0)); }},
    {"mtksw_phy_power_up", [] { return mtksw_phy_power_up(number(0)); }},
    {"mtksw_phy_power_up_all", [] { return mtksw_phy_power_up_all(); }},
    {"mtksw_vlan_entry_set", [] { return mtksw_vlan_entry_set(number(0), number(1), number(2)); }},
    {"mtksw_vlan_entry_get", vlan_entry_get},
    {"mtksw_vlan_entry_find", vlan_entry_find},
    {"mtksw_vlan_member_set", [] { return mtksw_vlan_member_set(number(0), number(1), number(2)); }},
    {"mtksw_vlan_member_clear", [] { return mtksw_vlan_member_clear(number(0), number(1), number(2)); }},
    {"mtksw_port_pvid_set", [] { return mtksw_port_pvid_set(number(0), number(1)); }},
    {"netbd_seqport_get", seqport_get},
    {"netbd_lan_hwport_get_null", [] { return netbd_lan_hwport_get(1, nullptr); }},
    {"netbd_wan_hwport_get_null", [] { return netbd_wan_hwport_get(9, nullptr); }},
    {"netbd_seqport_get_null", [] { return netbd_seqport_get(1, nullptr); }},
    {"netintf_proto_config_pppoe", [] { return with_entry(proto_config_pppoe); }},
    {"netintf_proto_config_static", [] { return with_entry(proto_config_static); }},
    {"netintf_proto_config_dhcp", [] { return with_entry(proto_config_dhcp); }},
    {"netintf_proto_stop", [] { return with_entry(netintf_proto_stop); }},
    {"netintf_proto_dhcp_stop", [] { return with_entry(netintf_proto_dhcp_stop); }},
    {"netintf_lan_del_of_other_type",
     [] {
         return with_entry([](netintf_entry *entry) {
             entry->intf_type = intf_type_none;
             return netintf_lan_del(entry->name);
         });
     }},
    {"netintf_entry_free_head", entry_free_of_head},
    {"netintf_entry_free", entry_free},
    {"netintf_port_head_get_without_registry", [] { return netintf_port_head_get(2) == nullptr ? 0 : 1; }},
    {"netintf_hwport_get_byname_null",
     [] {
         netbd_lan_wan_init();
         return netintf_hwport_get_byname(word(0), nullptr);
     }},
    {"netintf_link_get_byname", link_get_byname},
    {"netintf_hwport_get_byname", hwport_get_byname},
    {"netpre_input_drop_rule", [] { return netpre_input_drop_rule(word(0), static_cast<int>(number(1))); }},
    {"netpre_ssh_drop_rule", [] { return netpre_ssh_drop_rule(word(0), static_cast<int>(number(1))); }},
    {"ivarode_log_null", log_null},
    {"ivarode_log", [] { return ivarode_log(static_cast<int>(number(0)), "%s %d%%\n", word(1), 7); }},
    {"ivarode_dbg_init", [] { return ivarode_dbg_init(); }},
    {"NET_DEBUG",
     [] {
         NET_DEBUG("before the area is mapped\n");
         return ivarode_dbg_enabled() ? 1 : 0;
     }},
    {"netbd_lan_wan_init", [] { return netbd_lan_wan_init(); }},
    {"netevt_nl_init", [] { return netevt_nl_init(); }},
    {"netpre_init", [] { return netpre_init(); }},
    {"netintf_lan_init",
     [] {
         netbd_lan_wan_init();
         return netintf_lan_init();
     }},
    {"netintf_vintf_init", [] { return netintf_vintf_init(word(0), static_cast<int>(number(1)), some_mac); }},
    {"netintf_vintf_delete", [] { return netintf_vintf_delete(word(0)); }},
    {"netintf_device_mac_get", device_mac_get},
    {"netintf_bridge_create", bridge_create},
    {"netintf_bridge_delete", bridge_delete},
    {"netintf_port_init",
     [] {
         board_and_registry();
         return netintf_port_init(number(0), static_cast<int>(number(1)), number(2));
     }},
    {"netintf_hw_port_exit",
     [] {
         board_and_registry();
         return netintf_hw_port_exit(number(0), number(1));
     }},
    {"netintf_vlan_intf_create",
     [] {
         board_and_registry();
         return netintf_vlan_intf_create(number(0), number(1), static_cast<int>(number(2)),
                                         static_cast<int>(number(3)));
     }},
    {"netintf_vlan_intf_delete",
     [] {
         board_and_registry();
         return netintf_vlan_intf_delete(static_cast<int>(number(0)), number(1), static_cast<int>(number(2)),
                                         static_cast<int>(number(3)));
     }},
    {"netintf_link_get_on_board", link_get_on_board},
    {"netintf_proto_intf", proto_intf},
    {"netintf_section_mac", section_mac},
    {"netbd_port_total_get",
     [] {
         netbd_lan_wan_init();
         return static_cast<int>(netbd_port_total_get());
     }},
    {"netbd_basemac_get",
     [] {
         uint8_t mac[mac_size];
         return netbd_basemac_get(mac);
     }},
    {"mtksw_mii_init_post", [] { return mtksw_mii_init_post(); }},
    {"netbd_board_type_get",
     [] {
         netbd_lan_wan_init();
         return static_cast<int>(netbd_board_type_get());
     }},
    {"netintf_vlan_users_count", vlan_users_count},
    {"netintf_vlan_users_count_null",
     [] {
         board_and_registry();
         return netintf_vlan_users_count(1, 100, 7, nullptr);
     }},
    {"route_cfg_init", [] { return route_cfg_init(); }},
    {"route_cfg_entry_gateway_update",
     [] {
         route_cfg_init();
         return route_cfg_entry_gateway_update(word(0));
     }},
    {"route_cfg_entry_rt_add", [] { return route_cfg_entry_rt_add(text(0), text(1), text(2), text(3), 7); }},
    {"route_cfg_entry_rt_del", [] { return route_cfg_entry_rt_del(text(0), text(1), text(2), text(3), 7); }},
    {"pppauth_db_insert", [] { return pppauth_db_insert(text(0), "t", "i", text(1), text(2)); }},
    {"pppauth_db_delete", [] { return pppauth_db_delete(word(0), "t", "i", "m"); }},
    {"ivarode_ubus_init", [] { return ivarode_ubus_init(); }},
    {"ivarode_main_exit",
     [] {
         ivarode_main_exit();
         return 0;
     }},
    {"ivarode_sig_handler", [] { return ivarode_sig_handler(static_cast<int>(number(0))); }},
    {"ivarode_sig_init", [] { return ivarode_sig_init(); }},
    {"SIGTERM",
     [] {
         ivarode_sig_init();
         std::raise(SIGTERM);
         return 7;
     }},
    {"ivarode_ubus_exit", [] { return ivarode_ubus_exit(1, nullptr, 5); }},
};

} // namespace

extern "C" {

void __real_free(void *memory);

void __wrap_free(void *memory)
{
    if (memory != nullptr && memory == watched) {
        cleared = std::all_of(watched, watched + sizeof(netintf_entry), [](auto byte) { return byte == 0; });
    }
    __real_free(memory);
}

} // extern "C"

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
