// Frames and register states into the forwarding plane. A frame reaches only members of its VLAN whose port
// is up, never the port it came from, and with its content untouched but for the tag that the VLAN's rules
// ask for.
//
// An input is a list of steps, each a byte that says what to do and what that needs.
#include "forwarder.h"
#include "input.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace {

using namespace lab;
using fuzz::promise;
using Bytes = std::vector<uint8_t>;

constexpr size_t addresses = 12;

struct Tag {
    bool present = false;
    uint16_t tci = 0;
    Bytes payload; // what follows addresses and tag
};

Tag tag_of(std::span<const uint8_t> frame)
{
    Tag tag;
    size_t at = addresses;
    if (frame[12] == 0x81 && frame[13] == 0x00) {
        tag.present = true;
        tag.tci = static_cast<uint16_t>(frame[14] << 8 | frame[15]);
        at += 4;
    }
    tag.payload.assign(frame.begin() + static_cast<ptrdiff_t>(at), frame.end());
    return tag;
}

class Plane {
public:
    explicit Plane(unsigned cpu_ports)
        : words_(new uint32_t[switch_block_size / 4]()), regs_(words_.get()), cpu_ports_(cpu_ports),
          plane_(regs_, cpu_ports)
    {}

    void step(fuzz::Input &input);

private:
    void field(uint32_t reg, unsigned shift, uint32_t mask, uint32_t value)
    {
        regs_.write(reg, (regs_.read(reg) & ~(mask << shift)) | (value & mask) << shift);
    }
    uint32_t field(uint32_t reg, unsigned shift, uint32_t mask) const
    {
        return regs_.read(reg) >> shift & mask;
    }
    Bytes frame_from(fuzz::Input &input) const;
    void offer(unsigned port, const Bytes &frame);
    void check(unsigned in_port, const Bytes &frame, std::span<const Egress> out) const;
    bool cpu_side(unsigned port) const { return port >= 5; }

    std::unique_ptr<uint32_t[]> words_;
    SwitchRegs regs_;
    unsigned cpu_ports_;
    Forwarder plane_;
    uint8_t links_ = 0x1f;
    uint64_t now_ = 1;
};

void Plane::step(fuzz::Input &input)
{
    const uint8_t what = input.u8() % 8;
    const unsigned index = input.u8() % 16;
    switch (what) {
    case 0:
        regs_.write(0x40 + 4 * index, input.u32());
        break;
    case 1:
        regs_.write(input.u8() % 2 == 0 ? reg_port_control : reg_vlan_untag + 4 * (index % 4), input.u32());
        break;
    case 2:
        field(reg_vlan_id + 4 * (index / 2), 12 * (index % 2), 0xfff, input.u16());
        field(reg_vlan_members + 4 * (index / 4), 8 * (index % 4), 0x7f, input.u8());
        field(reg_vlan_untag + 4 * (index / 4), 7 * (index % 4), 0x7f, input.u8());
        break;
    case 3:
        field(reg_pvid + 4 * (index % 5 / 2), 12 * (index % 5 % 2), 0xfff, input.u16());
        break;
    case 4:
        links_ = input.u8() & 0x1f;
        plane_.set_link(links_);
        break;
    case 5:
        now_ += input.u32();
        plane_.mac_table().expire(now_);
        break;
    default: {
        const Bytes frame = what == 6 ? frame_from(input) : [&] {
            const std::string_view raw = input.bytes(input.u16() % 2000);
            return Bytes(raw.begin(), raw.end());
        }();
        offer(index % 8, frame);
    }
    }
}

// A frame between few stations, tagged or not.
Bytes Plane::frame_from(fuzz::Input &input) const
{
    const uint8_t stations = input.u8();
    Bytes frame = {0x02, 0, 0, 0, 0, static_cast<uint8_t>(stations & 7),
                   0x02, 0, 0, 0, 0, static_cast<uint8_t>(stations >> 3 & 7)};
    if (stations & 0x80) {
        std::fill(frame.begin(), frame.begin() + 6, uint8_t{0xff});
    }
    if (stations & 0x40) {
        const uint16_t tci = input.u16();
        frame.insert(frame.end(),
                     {0x81, 0x00, static_cast<uint8_t>(tci >> 8), static_cast<uint8_t>(tci & 0xff)});
    }
    frame.insert(frame.end(), {0x08, 0x00});
    frame.resize(frame.size() + input.u16() % 1530, stations);
    return frame;
}

void Plane::offer(unsigned port, const Bytes &frame)
{
    const std::span<const Egress> out = plane_.forward(port, frame, now_);
    if (!out.empty()) {
        check(port, frame, out);
    }
}

void Plane::check(unsigned in_port, const Bytes &frame, std::span<const Egress> out) const
{
    promise(frame.size() >= 14 && frame.size() <= 1522, "only frames of a possible length are forwarded");
    promise(in_port < 5 ? (links_ >> in_port & 1) != 0 : in_port == 6 || (in_port == 5 && cpu_ports_ == 2),
            "only ports that are up are heard");
    const Tag tag = tag_of(frame);
    uint32_t vid = tag.tci & 0xfff;
    if (vid == 0) {
        promise(!cpu_side(in_port), "the CPU's side names a VLAN");
        vid = field(reg_pvid + 4 * (in_port / 2), 12 * (in_port % 2), 0xfff);
    }
    uint32_t members = 0;
    uint32_t untag = 0;
    for (unsigned i = 0; i < 16 && members == 0; i++) {
        if (field(reg_vlan_id + 4 * (i / 2), 12 * (i % 2), 0xfff) == vid) {
            members = field(reg_vlan_members + 4 * (i / 4), 8 * (i % 4), 0x7f);
            untag = field(reg_vlan_untag + 4 * (i / 4), 7 * (i % 4), 0x7f);
            if (vid != 0) {
                break;
            }
        }
    }
    if ((regs_.read(reg_port_control) & 0x8000) == 0) {
        untag = 0;
    }
    promise((members >> in_port & 1) != 0, "the port a frame comes in on is a member of its VLAN");
    uint32_t seen = 0;
    for (const Egress &egress : out) {
        promise((members >> egress.port & 1) != 0, "a frame reaches only members of its VLAN");
        promise(egress.port != in_port, "a frame does not go back");
        promise(egress.port >= 5 || (links_ >> egress.port & 1) != 0, "a port without link gets nothing");
        promise((seen >> egress.port & 1) == 0, "a port gets a frame once");
        seen |= 1U << egress.port;
        promise(std::equal(frame.begin(), frame.begin() + addresses, egress.frame.begin()),
                "addresses stay as they are");
        const bool stripped = !cpu_side(egress.port) && (untag >> egress.port & 1) != 0;
        if (stripped) {
            promise(std::equal(tag.payload.begin(), tag.payload.end(), egress.frame.begin() + addresses,
                               egress.frame.end()),
                    "a stripped frame holds its payload");
            continue;
        }
        const Tag left = tag_of(egress.frame);
        promise(left.present && (left.tci & 0xfff) == vid, "a tagged frame names its VLAN");
        promise((left.tci & 0xf000) == (tag.tci & 0xf000), "priority bits stay as they are");
        promise(left.payload == tag.payload, "the payload stays as it is");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    Plane plane(1 + input.u8() % 2);
    for (int steps = 0; steps < 200 && !input.empty(); steps++) {
        plane.step(input);
    }
    return 0;
}
