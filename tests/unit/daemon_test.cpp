#include "daemon_test.h"

#include "board/board_map.h"
#include "core/bus_objects.h"
#include "netintf/reply.h"
#include "platform/output.h"
#include "route/table.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <regex>

namespace unit {

namespace {

Lines report(int level, const char *channel, const std::string &text)
{
    // The system log cuts at its line's length, the platform's channel does not.
    return std::vector<std::string>{"syslog(" + std::to_string(level) + ", " + quote(text.substr(0, 1023)) +
                                        ")",
                                    std::string{channel} + "(" + quote(text) + ")"};
}

// In reports addresses of objects differ from run to run; no other number there has so many digits.
std::string addresses_hidden(const std::string &line)
{
    static const std::regex object_address{"0x[0-9a-f]{6,}"};
    const bool is_report = line.starts_with("syslog(") || line.starts_with("outlib_");
    return is_report ? std::regex_replace(line, object_address, "ADDRESS") : line;
}

} // namespace

void registry_drop()
{
    if (netintf_registry == nullptr) {
        return;
    }
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        netintf_entry *head = &netintf_registry[port];
        for (netintf_entry *entry = head->next; entry != nullptr && entry != head;) {
            netintf_entry *next = entry->next;
            std::free(entry);
            entry = next;
        }
    }
    std::free(netintf_registry);
    netintf_registry = nullptr;
    netintf_lan_port_mask = 0;
    netintf_wan_port_mask = 0;
}

void routes_drop()
{
    const list_head *head = &route_cfg_list_get().head;
    while (head->next != head) {
        route_cfg_entry *entry = list_entry(head->next, route_cfg_entry, links);
        list_del(&entry->links);
        std::free(entry);
    }
}

Lines error(const std::string &text)
{
    return report(3, "outlib_error", text);
}

Lines warning(const std::string &text)
{
    return report(4, "outlib_warning", text);
}

Lines notice(const std::string &text)
{
    return report(5, "outlib_notice", text);
}

Lines info(const std::string &text)
{
    return "outlib_info(" + quote(text) + ")";
}

std::string join(const std::vector<std::string> &lines)
{
    std::string out;
    for (const std::string &line : lines) {
        out += line + "\n";
    }
    return out;
}

uint32_t address(const char *text)
{
    return inet_addr(text);
}

DaemonTest::DaemonTest()
{
    double_reset();
    g_netd_dbg_shm = nullptr;
    board({{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}});
    world.packages = {"lan_intf", "wan_intf", "route_config", "dhcp"};
}

DaemonTest::~DaemonTest()
{
    EXPECT_EQ(open_handles(), 0U) << "sockets, files or databases left open";
    registry_drop();
    routes_drop();
    blob_buf_free(&netintf_reply);
    netintf_reply = {};
}

void DaemonTest::board(const Ports &ports, uint32_t cpuid)
{
    world.ports = {};
    for (size_t i = 0; i < ports.size(); i++) {
        world.ports.at(i) = ports[i];
    }
    world.cpuid = cpuid;
    registry_drop();
    ASSERT_EQ(netbd_lan_wan_init(), 0);
    ASSERT_EQ(netintf_registry_init(), 0);
    ASSERT_EQ(ivarode_ubus_init(), 0);
    skip_trace();
}

void DaemonTest::board_with_two_cpu_ports()
{
    board({{1, 1}, {1, 2}, {2, 3}, {2, 4}, {2, 0}}, two_cpu_ports);
}

void DaemonTest::skip_trace()
{
    trace_take();
    hidden_take();
}

void DaemonTest::expect_trace(const std::vector<Lines> &expected)
{
    std::vector<std::string> lines;
    for (const Lines &part : expected) {
        lines.insert(lines.end(), part.all().begin(), part.all().end());
    }
    std::vector<std::string> trace = trace_take();
    std::transform(trace.begin(), trace.end(), trace.begin(), addresses_hidden);
    EXPECT_EQ(join(trace), join(lines));
}

void DaemonTest::expect_quiet_trace(const std::vector<Lines> &expected)
{
    expect_trace(expected);
    EXPECT_EQ(hidden_take(), 0U) << "registers or board information touched";
}

void DaemonTest::expect_call(const std::string &object, const std::string &method, const Message &message,
                             int status, const std::vector<Lines> &expected)
{
    EXPECT_EQ(call(object, method, message), status);
    expect_trace(expected);
}

netintf_entry *DaemonTest::record(const char *name, uint32_t type, uint16_t vlanid1, uint16_t vlanid2)
{
    uint32_t port = 0;
    EXPECT_EQ(netintf_hwport_get_byname(name, &port), 0) << name;
    const uint8_t mac[6] = {};
    netintf_entry *entry = netintf_l3intf_init(port, name, type, mac, vlanid1, vlanid2);
    skip_trace();
    return entry;
}

netintf_entry *DaemonTest::lan(const char *name, uint16_t vlanid1, uint16_t vlanid2)
{
    netintf_entry *entry = record(name, intf_type_lan, vlanid1, vlanid2);
    entry->proto = proto_static;
    return entry;
}

netintf_entry *DaemonTest::wan(const char *name, netintf_proto proto, uint16_t vlanid1, uint16_t vlanid2)
{
    netintf_entry *entry = record(name, intf_type_wan, vlanid1, vlanid2);
    entry->proto = proto;
    entry->defrt_pri = defrt_pri_default;
    netintf_entry *head = netintf_port_head_get(entry->hw_port);
    head->intf_type = intf_type_wan;
    head->hw_port = entry->hw_port;
    return entry;
}

std::vector<std::string> DaemonTest::names_on(uint32_t port)
{
    std::vector<std::string> names;
    const netintf_entry *head = netintf_port_head_get(port);
    for (const netintf_entry *entry = head->next; entry != head; entry = entry->next) {
        names.emplace_back(entry->name);
        EXPECT_EQ(entry->next->prev, entry);
    }
    return names;
}

void DaemonTest::link_set(uint32_t port, uint32_t link)
{
    netintf_port_head_get(port)->link = link;
}

} // namespace unit
