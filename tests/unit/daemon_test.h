// A daemon that has come as far as its registry and its bus objects, on a board of five ports: LAN 1 to 4 on
// switch ports 1 to 4, WAN 1 on switch port 0, base MAC 00:11:22:33:44:50, one CPU port.
#pragma once

#include "double.h"
#include "message.h"
#include "netintf/registry.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace unit {

// One or more lines that a trace is expected to have.
class Lines {
public:
    Lines(const char *line) : lines_{line} {}
    Lines(std::string line) : lines_{std::move(line)} {}
    Lines(std::vector<std::string> lines) : lines_{std::move(lines)} {}
    const std::vector<std::string> &all() const { return lines_; }

private:
    std::vector<std::string> lines_;
};

// What a report leaves in the trace.
Lines error(const std::string &text);
Lines warning(const std::string &text);
Lines notice(const std::string &text);
Lines info(const std::string &text);

std::string join(const std::vector<std::string> &lines);

constexpr uint32_t two_cpu_ports = 0xc7a6e2d1;

// Role and switch port of each Ethernet index from 0 on.
using Ports = std::vector<netbd_ether>;

class DaemonTest : public testing::Test {
protected:
    DaemonTest();
    ~DaemonTest() override;

    // Another board; the registry is built anew and nothing of this is left in the trace.
    void board(const Ports &ports, uint32_t cpuid = 1);
    // WANs reach the CPU through "eth1".
    void board_with_two_cpu_ports();

    // The trace since the last look is exactly this, but that addresses of objects read ADDRESS in reports.
    // With quiet, no register and no board information was touched either.
    void expect_trace(const std::vector<Lines> &expected);
    void expect_quiet_trace(const std::vector<Lines> &expected);
    void expect_call(const std::string &object, const std::string &method, const Message &message, int status,
                     const std::vector<Lines> &expected);
    // Forgets the trace so far.
    static void skip_trace();

    // Records made without a device.
    static netintf_entry *record(const char *name, uint32_t type, uint16_t vlanid1 = vlan_none,
                                 uint16_t vlanid2 = vlan_none);
    static netintf_entry *lan(const char *name, uint16_t vlanid1 = vlan_none, uint16_t vlanid2 = vlan_none);
    static netintf_entry *wan(const char *name, netintf_proto proto = proto_static,
                              uint16_t vlanid1 = vlan_none, uint16_t vlanid2 = vlan_none);
    // Names on a port's list, in order.
    static std::vector<std::string> names_on(uint32_t port);
    static void link_set(uint32_t port, uint32_t link);
};

// Network byte order, as the records keep it.
uint32_t address(const char *text);

// As before the registry is built.
void registry_drop();
// No static routes any more.
void routes_drop();

} // namespace unit
