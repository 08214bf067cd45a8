#include "forwarder.h"

#include <cstring>

namespace lab {

namespace {

constexpr uint8_t front_mask_all = (1U << front_ports) - 1;
constexpr size_t addresses = 12;

constexpr uint8_t bit(unsigned port)
{
    return static_cast<uint8_t>(1U << port);
}

uint16_t word_at(std::span<const uint8_t> frame, size_t offset)
{
    return static_cast<uint16_t>(frame[offset] << 8 | frame[offset + 1]);
}

bool has_tag(std::span<const uint8_t> frame)
{
    return word_at(frame, addresses) == 0x8100;
}

uint64_t address_at(std::span<const uint8_t> frame, size_t offset)
{
    uint64_t address = 0;
    for (size_t i = 0; i < 6; i++) {
        address = address << 8 | frame[offset + i];
    }
    return address;
}

bool group_address(std::span<const uint8_t> frame, size_t offset)
{
    return (frame[offset] & 1) != 0;
}

} // namespace

const char *drop_name(Drop reason)
{
    switch (reason) {
    case Drop::port_down:
        return "port_down";
    case Drop::runt:
        return "runt";
    case Drop::oversize:
        return "oversize";
    case Drop::bad_source:
        return "bad_source";
    case Drop::cpu_untagged:
        return "cpu_untagged";
    case Drop::unknown_vlan:
        return "unknown_vlan";
    case Drop::not_member:
        return "not_member";
    case Drop::same_port:
        return "same_port";
    case Drop::no_destination:
        return "no_destination";
    case Drop::count:
        break;
    }
    return "?";
}

Forwarder::Forwarder(SwitchRegs registers, unsigned cpu_ports)
    : regs_(registers), existing_(static_cast<uint8_t>(front_mask_all | bit(cpu_port) |
                                                       (cpu_ports > 1 ? bit(second_cpu_port) : 0))),
      active_(existing_)
{}

void Forwarder::set_link(uint8_t front_mask)
{
    const auto now_active =
        static_cast<uint8_t>((existing_ & ~front_mask_all) | (front_mask & front_mask_all));
    const auto gone = static_cast<uint8_t>(active_ & ~now_active);
    active_ = now_active;
    for (unsigned port = 0; gone != 0 && port < front_ports; port++) {
        if (gone & bit(port)) {
            macs_.flush_port(port);
        }
    }
}

bool Forwarder::classify(unsigned in_port, std::span<const uint8_t> frame, Classified &result,
                         Drop &reason) const
{
    if (frame.size() < ethernet_header || (has_tag(frame) && frame.size() < ethernet_header + tag_size)) {
        reason = Drop::runt;
        return false;
    }
    if (frame.size() > max_frame) {
        reason = Drop::oversize;
        return false;
    }
    if (group_address(frame, 6)) {
        reason = Drop::bad_source;
        return false;
    }
    result.tagged = has_tag(frame);
    result.tci = result.tagged ? word_at(frame, ethernet_header) : uint16_t{0};
    auto vid = static_cast<uint16_t>(result.tci & 0xfff);
    if (vid == 0) {
        if (is_cpu(in_port)) {
            reason = Drop::cpu_untagged;
            return false;
        }
        vid = vlans_.pvid(in_port);
        result.tci = static_cast<uint16_t>((result.tci & 0xf000) | vid);
    }
    result.entry = vlans_.find(vid);
    if (result.entry == nullptr) {
        reason = Drop::unknown_vlan;
        return false;
    }
    if (!(result.entry->members & bit(in_port))) {
        reason = Drop::not_member;
        return false;
    }
    return true;
}

uint8_t Forwarder::destinations(unsigned in_port, const Classified &frame_class,
                                std::span<const uint8_t> frame, uint64_t now_ms, Drop &reason) const
{
    const auto members = static_cast<uint8_t>(frame_class.entry->members & active_);
    if (!group_address(frame, 0)) {
        const int port = macs_.find(frame_class.entry->vid, address_at(frame, 0), now_ms);
        if (port == static_cast<int>(in_port)) {
            reason = Drop::same_port;
            return 0;
        }
        // A station whose port has left the VLAN since is as good as unknown.
        if (port >= 0 && (members & bit(static_cast<unsigned>(port)))) {
            return bit(static_cast<unsigned>(port));
        }
    }
    const auto others = static_cast<uint8_t>(members & ~bit(in_port));
    if (others == 0) {
        reason = Drop::no_destination;
    }
    return others;
}

std::span<const uint8_t> Forwarder::tagged_form(const Classified &frame_class, std::span<const uint8_t> frame)
{
    const size_t rest = frame_class.tagged ? addresses + tag_size : addresses;
    memcpy(with_tag_.data(), frame.data(), addresses);
    with_tag_[addresses] = 0x81;
    with_tag_[addresses + 1] = 0x00;
    with_tag_[addresses + 2] = static_cast<uint8_t>(frame_class.tci >> 8);
    with_tag_[addresses + 3] = static_cast<uint8_t>(frame_class.tci & 0xff);
    memcpy(with_tag_.data() + addresses + tag_size, frame.data() + rest, frame.size() - rest);
    return {with_tag_.data(), frame.size() - rest + addresses + tag_size};
}

std::span<const uint8_t> Forwarder::untagged_form(const Classified &frame_class,
                                                  std::span<const uint8_t> frame)
{
    if (!frame_class.tagged) {
        return frame;
    }
    memcpy(without_tag_.data(), frame.data(), addresses);
    memcpy(without_tag_.data() + addresses, frame.data() + addresses + tag_size,
           frame.size() - addresses - tag_size);
    return {without_tag_.data(), frame.size() - tag_size};
}

void Forwarder::emit(const Classified &frame_class, std::span<const uint8_t> frame, uint8_t mask)
{
    std::span<const uint8_t> tagged;
    std::span<const uint8_t> untagged;
    for (unsigned port = 0; port < port_count; port++) {
        if (!(mask & bit(port))) {
            continue;
        }
        const bool strip =
            !is_cpu(port) && vlans_.untag_enabled() && ((frame_class.entry->untag & bit(port)) != 0);
        std::span<const uint8_t> &form = strip ? untagged : tagged;
        if (form.empty()) {
            form = strip ? untagged_form(frame_class, frame) : tagged_form(frame_class, frame);
        }
        ports_[port].tx_frames++;
        ports_[port].tx_bytes += form.size();
        out_[out_count_++] = {port, form};
    }
}

std::span<const Egress> Forwarder::forward(unsigned in_port, std::span<const uint8_t> frame, uint64_t now_ms)
{
    out_count_ = 0;
    if (!exists(in_port)) {
        return {};
    }
    PortCounters &port = ports_[in_port];
    port.rx_frames++;
    port.rx_bytes += frame.size();
    Drop reason = Drop::port_down;
    Classified frame_class{};
    vlans_.refresh(regs_);
    uint8_t mask = 0;
    if (up(in_port) && classify(in_port, frame, frame_class, reason)) {
        macs_.learn(frame_class.entry->vid, address_at(frame, 6), in_port, now_ms);
        mask = destinations(in_port, frame_class, frame, now_ms, reason);
    }
    if (mask == 0) {
        port.drops[static_cast<size_t>(reason)]++;
        return {};
    }
    emit(frame_class, frame, mask);
    return {out_.data(), out_count_};
}

} // namespace lab
