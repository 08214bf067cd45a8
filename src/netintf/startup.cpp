#include "netintf/startup.h"

#include "board/board_map.h"
#include "board/switch_port.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/proto.h"
#include "netintf/registry.h"
#include "netintf/statist.h"
#include "platform/config.h"
#include "platform/netdev.h"

#include <unistd.h>

namespace {

constexpr unsigned link_settle_seconds = 5;

// The registry, and the devices under all others.
int base_init()
{
    if (const int rv = netintf_registry_init(); rv != rv_ok) {
        return rv;
    }
    if (const int rv = netlib_eth_intf_up("eth0"); rv != 0) {
        return rv;
    }
    return netbd_board_type_get() >= board_type_two_cpu_ports ? netlib_eth_intf_up("eth1") : rv_ok;
}

} // namespace

int netintf_lan_init()
{
    if (const int rv = base_init(); rv != rv_ok) {
        NET_ERROR("mtk switch init inif failed\r\n");
        return rv;
    }
    if (const int rv = mtksw_port_vlan_init_post(); rv != rv_ok) {
        NET_ERROR("mtk switch init pre failed\r\n");
        return rv;
    }
    if (ucilib_foreach_section("lan_intf", "interface", netintf_uci_lan_parse_each, nullptr) != 0) {
        NET_ERROR("%s %d lan uci init failed\n", __func__, 2507);
        NET_ERROR("net interface lan init err\r\n");
        return rv_uci;
    }
    if (ucilib_foreach_section("wan_intf", "interface", netintf_uci_wan_parse_each, nullptr) != 0) {
        NET_ERROR("net interface wan  init err\r\n");
        return rv_uci;
    }
    netintf_statist_start();
    return rv_ok;
}

int netintf_init_post()
{
    mtksw_mii_init_post();
    // A signal ends a sleep early; the links get their five seconds all the same.
    for (unsigned left = link_settle_seconds; left != 0;) {
        left = sleep(left);
    }
    for (uint32_t port = 0; port < netintf_port_count; ++port) {
        uint32_t link = 0;
        if (mtksw_port_link_get(port, &link) != rv_ok) {
            continue;
        }
        NET_INFO("%s %d i=%d link=%d\n", __func__, 3025, port, link);
        if (netintf_entry *head = netintf_port_head_get(port); link != 0 && head != nullptr) {
            netintf_proto_intf_up(head);
        }
    }
    return rv_ok;
}
