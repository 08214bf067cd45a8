// Devices, addresses, routes, rules and the channels of events.
#include "network.h"
#include "platform/events.h"
#include "platform/netdev.h"
#include "platform/output.h"
#include "sweep.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <net/if.h>

extern "C" {
#include <libubox/uloop.h>
}

namespace {

class LibraryNetwork : public NetworkTest {};

void ip_quietly(const std::string &arguments)
{
    std::vector<std::string> argv = {"/sbin/ip"};
    for (size_t at = 0; at < arguments.size();) {
        size_t end = std::min(arguments.find(' ', at), arguments.size());
        argv.push_back(arguments.substr(at, end - at));
        at = end + 1;
    }
    run_program(argv); // what is absent need not be removed
}

std::string device_file(const char *device, const char *file)
{
    std::string path = std::string("/sys/class/net/") + device + "/" + file;
    return file_exists(path) ? read_file(path) : "absent";
}

std::string bridge_of(const char *device)
{
    std::error_code none;
    std::string path =
        std::filesystem::read_symlink(std::string("/sys/class/net/") + device + "/master", none);
    return none ? "none" : path;
}

std::string presence(const char *device)
{
    return file_exists(std::string("/sys/class/net/") + device) ? "there" : "absent";
}

TEST_F(LibraryNetwork, Bridges)
{
    if (!kernel_has("bridge")) {
        GTEST_SKIP() << "needs bridges";
    }
    auto without = [] { ip_quietly("link del br9"); };
    auto with = [] {
        ip_quietly("link set v0 nomaster");
        ip_quietly("link del br9");
        ip("link add br9 type bridge forward_delay 0");
    };
    auto with_member = [with] {
        with();
        ip("link set v0 master br9");
    };
    auto there = [] { return presence("br9"); };
    auto member = [] { return bridge_of("v0"); };
    sweep({.name = "netlib_br_create",
           .prepare = without,
           .run = [] { return netlib_br_create("br9"); },
           .state = there});
    sweep({.name = "netlib_br_delete",
           .prepare = with,
           .run = [] { return netlib_br_delete("br9"); },
           .state = there});
    sweep({.name = "netlib_br_addif",
           .prepare = with,
           .run = [] { return netlib_br_addif("br9", "v0"); },
           .state = member});
    sweep({.name = "netlib_br_delif",
           .prepare = with_member,
           .run = [] { return netlib_br_delif("br9", "v0"); },
           .state = member});
}

TEST_F(LibraryNetwork, Vlans)
{
    if (!kernel_has("vlan")) {
        GTEST_SKIP() << "needs VLAN devices";
    }
    auto there = [] { return presence("v0.5"); };
    sweep({.name = "netilib_vintf_create",
           .prepare = [] { ip_quietly("link del v0.5"); },
           .run = [] { return netilib_vintf_create("v0", 5); },
           .state = there});
    sweep({.name = "netlib_vintf_delete",
           .prepare = [] { ip_quietly("link add link v0 name v0.5 type vlan id 5"); },
           .run = [] { return netlib_vintf_delete("v0.5"); },
           .state = there});
}

TEST_F(LibraryNetwork, Devices)
{
    static uint8_t mac[6];
    auto flags = [] { return device_file("v0", "flags"); };
    sweep({.name = "netlib_eth_intf_up",
           .prepare = [] { ip("link set v0 down"); },
           .run = [] { return netlib_eth_intf_up("v0"); },
           .state = flags});
    sweep({.name = "netlib_eth_intf_down",
           .prepare = [] { ip("link set v0 up"); },
           .run = [] { return netlib_eth_intf_down("v0"); },
           .state = flags});
    sweep({.name = "netlib_eth_mac_set",
           .prepare = [] { ip("link set v0 address 02:00:00:00:00:01"); },
           .run =
               [] {
                   const uint8_t wanted[6] = {2, 0, 0, 0, 0, 9};
                   return netlib_eth_mac_set("v0", wanted);
               },
           .state = [] { return device_file("v0", "address"); }});
    sweep({.name = "netlib_eth_mac_get",
           .prepare =
               [] {
                   ip("link set v0 address 02:00:00:00:00:01");
                   memset(mac, 0, sizeof mac);
               },
           .run = [] { return netlib_eth_mac_get("v0", mac); },
           .state = [] { return std::to_string(mac[0]) + " " + std::to_string(mac[5]); },
           .all_or_nothing = true});
    // 0 is for a device that is gone: a question without an answer counts as one that is there.
    sweep({.name = "netlib_eth_intf_exist",
           .prepare = [] {},
           .run = [] { return netlib_eth_intf_exist("absent0"); }});
}

std::string addresses()
{
    return ip("-o -4 address show dev v0");
}

TEST_F(LibraryNetwork, Addresses)
{
    auto two_old_ones = [] {
        ip("address flush dev v0");
        ip("address add 192.0.2.1/24 dev v0");
        ip("address add 192.0.2.2/24 dev v0");
    };
    sweep({.name = "netlib_intf_set_ip",
           .prepare = two_old_ones,
           .run = [] { return netlib_intf_set_ip("v0", "10.1.2.3"); },
           .state = addresses});
    sweep({.name = "netlib_intf_set_ip to the second",
           .prepare = two_old_ones,
           .run = [] { return netlib_intf_set_ip("v0", "192.0.2.2"); },
           .state = addresses});
    sweep({.name = "netlib_intf_set_ip to none",
           .prepare = two_old_ones,
           .run = [] { return netlib_intf_set_ip("v0", "0.0.0.0"); },
           .state = addresses});
    sweep({.name = "netlib_intf_set_netmask",
           .prepare =
               [] {
                   ip("address flush dev v0");
                   ip("address add 192.0.2.1/24 dev v0");
               },
           .run = [] { return netlib_intf_set_netmask("v0", "255.255.0.0"); },
           .state = addresses});
}

std::string table()
{
    return run_program({"/sbin/ip", "route", "show", "table", "20001"}).out;
}

std::string rules()
{
    return ip("rule");
}

void without_routing()
{
    ip_quietly("route flush table 20001");
    ip_quietly("rule del pref 20001");
    ip_quietly("rule del pref 10001");
    ip_quietly("rule del pref 10000");
}

TEST_F(LibraryNetwork, Routes)
{
    ip("address add 192.0.2.1/24 dev v0");
    ip("link set v0 up");
    auto with_route = [] {
        without_routing();
        ip("route add 203.0.113.0/24 via 192.0.2.254 dev v0 metric 5 table 20001");
    };
    auto with_gateway = [] {
        without_routing();
        ip("route add default via 192.0.2.253 dev v0 metric 20001 table 20001");
    };
    auto add = [] { return netlib_rt_add_gw(20001, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 5); };
    sweep({.name = "netlib_rt_add_gw", .prepare = without_routing, .run = add, .state = table});
    sweep({.name = "netlib_rt_del_gw",
           .prepare = with_route,
           .run =
               [] { return netlib_rt_del_gw(20001, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 5); },
           .state = table,
           .once = true});
    sweep({.name = "netlib_intf_gateway_add",
           .prepare = with_gateway,
           .run = [] { return netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001); },
           .state = table});
    sweep({.name = "netlib_intf_gateway_del",
           .prepare = with_gateway,
           .run = [] { return netlib_intf_gateway_del(20001, "192.0.2.253", "v0", 20001); },
           .state = table});
}

TEST_F(LibraryNetwork, Rules)
{
    ip("link set v0 up");
    auto with_wan = [] {
        without_routing();
        ip("rule add pref 10001 lookup main suppress_prefixlength 0 proto 105");
        ip("rule add pref 20001 lookup 20001 proto 105");
    };
    sweep({.name = "netlib_ip_rule_add",
           .prepare = without_routing,
           .run = [] { return netlib_ip_rule_add(10000, "lookup 10000"); },
           .state = rules});
    sweep({.name = "netlib_ip_rule_del",
           .prepare =
               [] {
                   without_routing();
                   ip("rule add pref 10000 lookup 10000");
               },
           .run = [] { return netlib_ip_rule_del(10000); },
           .state = rules});
    sweep({.name = "netlib_intf_plcrt_add",
           .prepare = without_routing,
           .run = [] { return netlib_intf_plcrt_add("v0", 20001); },
           .state = rules});
    sweep({.name = "netlib_intf_plcrt_del",
           .prepare = with_wan,
           .run = [] { return netlib_intf_plcrt_del("v0", 20001); },
           .state = rules});
    auto in_a_start = [with_wan] {
        with_wan();
        outlib_client_init(0, nullptr);
    };
    sweep({.name = "start, netlib_intf_plcrt_del",
           .prepare = in_a_start,
           .run = [] { return netlib_intf_plcrt_del("v0", 20001); },
           .state = rules});
    sweep({.name = "start, netlib_ip_rule_add in the place of another",
           .prepare = in_a_start,
           .run =
               [] {
                   int result = netlib_ip_rule_del(20001);
                   return result ? result : netlib_ip_rule_add(20001, "lookup 5");
               },
           .state = rules});
}

unsigned heard;

int on_address(const nl_addr_event *event)
{
    heard = event->ipaddr;
    return 0;
}

int on_link(const nl_link_event *)
{
    return 0;
}

TEST_F(LibraryNetwork, Events)
{
    // Opened, and then the address that appears is heard of.
    auto hears = [] {
        ip("address flush dev v1");
        heard = 0;
        ip("address add 10.9.8.7/8 dev v1");
        for (int turn = 0; turn < 200 && heard == 0; turn++) {
            uloop_run_timeout(10);
        }
        return std::to_string(heard);
    };
    Operation open_channel{.name = "nl_rtmsg_init",
                           .prepare =
                               [] {
                                   uloop_init();
                                   nl_rtmsg_handler_reg(20, on_address);
                               },
                           .run = nl_rtmsg_init,
                           .state = hears};
    sweep(open_channel);
    Operation listen = open_channel;
    listen.name = "hearing of a device that comes up";
    listen.prepare = [] {
        ip("link set v0 down");
        ip("address flush dev v0");
        ip("address add 192.0.2.7/24 dev v0");
        uloop_init();
        nl_rtmsg_handler_reg(20, on_address);
        EXPECT_EQ(nl_rtmsg_init(), 0);
        uloop_run_timeout(0);
        ip("link set v0 up");
    };
    listen.run = [] {
        uloop_run_timeout(0);
        return 0;
    };
    sweep(listen);
    sweep({.name = "nl_rx_event_reg",
           .prepare = [] { nl_init("test"); },
           .run =
               [] {
                   if (uloop_init() != 0) {
                       return -1;
                   }
                   return nl_rx_event_reg(1, on_link);
               },
           .reports = false});
}

} // namespace
