#include "virtual_switch.h"

#include <cstring>
#include <ctime>
#include <sys/epoll.h>

namespace lab {

namespace {

// Frames taken from one port before the others get their turn.
constexpr int batch = 64;
// Longer than any frame that is forwarded, so that a cut frame is still seen to be too long.
constexpr size_t read_size = 2048;

} // namespace

uint64_t monotonic_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

std::string port_name(unsigned port)
{
    if (port == cpu_port) {
        return "eth0";
    }
    return port == second_cpu_port ? "eth1" : "port" + std::to_string(port);
}

VirtualSwitch::VirtualSwitch(SwitchRegs registers, PhyFile &phy_file, unsigned cpu_ports)
    : regs_(registers), phys_(phy_file), plane_(registers, cpu_ports)
{
    follow_links();
}

std::string VirtualSwitch::attach(EventLoop &loop)
{
    for (unsigned port = 0; port < port_count; port++) {
        if (!plane_.exists(port)) {
            continue;
        }
        const int result = taps_[port].create(port_name(port));
        if (result < 0) {
            return "cannot create TAP device " + port_name(port) + ": " + strerror(-result);
        }
        if (!loop.add(taps_[port].descriptor(), EPOLLIN,
                      [this, &loop, port](uint32_t) { readable(loop, port); })) {
            return "cannot watch TAP device " + port_name(port);
        }
    }
    links_known_ = false;
    follow_links();
    return "";
}

void VirtualSwitch::follow_links()
{
    uint8_t mask = 0;
    for (unsigned port = 0; port < front_ports; port++) {
        const Phy &phy = phys_.phy[port];
        const uint32_t losses = phy.losses.load(std::memory_order_relaxed);
        if (losses != losses_seen_[port]) {
            losses_seen_[port] = losses;
            plane_.link_lost(port);
        }
        mask |= static_cast<uint8_t>(phy_link(phy) ? 1U << port : 0U);
    }
    if (links_known_ && mask == link_seen_) {
        return;
    }
    plane_.set_link(mask);
    for (unsigned port = 0; port < front_ports; port++) {
        const bool changed = !links_known_ || ((mask ^ link_seen_) >> port & 1) != 0;
        if (changed && taps_[port].open()) {
            taps_[port].set_carrier((mask >> port & 1) != 0);
        }
    }
    link_seen_ = mask;
    links_known_ = true;
}

void VirtualSwitch::show(unsigned port, std::span<const uint8_t> frame)
{
    // A sink cannot remove itself here: connections end in the loop, not while a frame is handed out.
    for (auto &[key, watcher] : watchers_) {
        if (watcher.port == port) {
            watcher.sink(frame);
        }
    }
}

void VirtualSwitch::readable(EventLoop &loop, unsigned port)
{
    std::array<uint8_t, read_size> buffer;
    for (int i = 0; i < batch; i++) {
        const int length = taps_[port].read(buffer);
        if (length == 0) {
            return;
        }
        if (length < 0) {
            // The device went away with its network namespace: that end of the cable is gone for good.
            loop.remove(taps_[port].descriptor());
            return;
        }
        const std::span<const uint8_t> frame(buffer.data(), static_cast<size_t>(length));
        follow_links();
        show(port, frame);
        for (const Egress &egress : plane_.forward(port, frame, monotonic_ms())) {
            if (taps_[egress.port].write(egress.frame)) {
                show(egress.port, egress.frame);
            } else {
                unwritten_[egress.port]++;
            }
        }
    }
}

} // namespace lab
