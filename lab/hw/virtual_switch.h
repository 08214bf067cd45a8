// The emulated switch with its ports wired: moves frames between the port devices through the forwarding
// plane and keeps carrier in step with the PHYs. Devices are named port0..port4 (the far ends of the cables)
// and eth0, eth1 (the CPU's side).
#pragma once

#include "event_loop.h"
#include "forwarder.h"
#include "phy.h"
#include "tap.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace lab {

uint64_t monotonic_ms();
std::string port_name(unsigned port);

class VirtualSwitch {
public:
    using Sink = std::function<void(std::span<const uint8_t> frame)>;

    // Registers and PHYs must outlive the switch.
    VirtualSwitch(SwitchRegs registers, PhyFile &phy_file, unsigned cpu_ports);

    // Creates the devices and serves them in the loop; an empty string, or what failed.
    std::string attach(EventLoop &loop);

    // Brings carrier and address table in line with the PHYs; called for every frame and by a timer.
    void follow_links();
    // Makes room in the address table; wanted once a second or so.
    void forget_aged() { plane_.mac_table().expire(monotonic_ms()); }

    // Every frame that enters or leaves the port is handed to the sink, until it is removed by its key.
    void watch(unsigned port, int key, Sink sink) { watchers_[key] = {port, std::move(sink)}; }
    void unwatch(int key) { watchers_.erase(key); }

    Forwarder &forwarder() { return plane_; }
    SwitchRegs registers() const { return regs_; }
    Phy &phy(unsigned port) { return phys_.phy[port]; }
    uint64_t write_failures(unsigned port) const { return unwritten_[port]; }

private:
    struct Watcher {
        unsigned port;
        Sink sink;
    };

    void readable(EventLoop &loop, unsigned port);
    void show(unsigned port, std::span<const uint8_t> frame);

    SwitchRegs regs_;
    PhyFile &phys_;
    Forwarder plane_;
    std::array<Tap, port_count> taps_;
    std::array<uint64_t, port_count> unwritten_{};
    std::array<uint32_t, front_ports> losses_seen_{};
    uint8_t link_seen_ = 0;
    bool links_known_ = false;
    std::unordered_map<int, Watcher> watchers_;
};

} // namespace lab
