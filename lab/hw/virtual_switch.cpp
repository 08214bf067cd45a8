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
    : regs(registers), phys(phy_file), plane(registers, cpu_ports)
{
    follow_links();
}

std::string VirtualSwitch::attach(EventLoop &loop)
{
    for (unsigned port = 0; port < port_count; port++) {
        if (!plane.exists(port)) {
            continue;
        }
        const int result = taps[port].create(port_name(port));
        if (result < 0) {
            return "cannot create TAP device " + port_name(port) + ": " + strerror(-result);
        }
        if (!loop.add(taps[port].descriptor(), EPOLLIN,
                      [this, &loop, port](uint32_t) { readable(loop, port); })) {
            return "cannot watch TAP device " + port_name(port);
        }
    }
    links_known = false;
    follow_links();
    return "";
}

void VirtualSwitch::follow_links()
{
    uint8_t mask = 0;
    for (unsigned port = 0; port < front_ports; port++) {
        const Phy &phy = phys.phy[port];
        const uint32_t losses = phy.losses.load(std::memory_order_relaxed);
        if (losses != losses_seen[port]) {
            losses_seen[port] = losses;
            plane.link_lost(port);
        }
        mask |= static_cast<uint8_t>(phy_link(phy) ? 1U << port : 0U);
    }
    if (links_known && mask == link_seen) {
        return;
    }
    plane.set_link(mask);
    for (unsigned port = 0; port < front_ports; port++) {
        const bool changed = !links_known || ((mask ^ link_seen) >> port & 1) != 0;
        if (changed && taps[port].open()) {
            taps[port].set_carrier((mask >> port & 1) != 0);
        }
    }
    link_seen = mask;
    links_known = true;
}

void VirtualSwitch::show(unsigned port, std::span<const uint8_t> frame)
{
    // A sink cannot remove itself here: connections end in the loop, not while a frame is handed out.
    for (auto &[key, watcher] : watchers) {
        if (watcher.port == port) {
            watcher.sink(frame);
        }
    }
}

void VirtualSwitch::readable(EventLoop &loop, unsigned port)
{
    std::array<uint8_t, read_size> buffer;
    for (int i = 0; i < batch; i++) {
        const int length = taps[port].read(buffer);
        if (length == 0) {
            return;
        }
        if (length < 0) {
            // The device went away with its network namespace: that end of the cable is gone for good.
            loop.remove(taps[port].descriptor());
            return;
        }
        const std::span<const uint8_t> frame(buffer.data(), static_cast<size_t>(length));
        follow_links();
        show(port, frame);
        for (const Egress &egress : plane.forward(port, frame, monotonic_ms())) {
            if (taps[egress.port].write(egress.frame)) {
                show(egress.port, egress.frame);
            } else {
                unwritten[egress.port]++;
            }
        }
    }
}

} // namespace lab
