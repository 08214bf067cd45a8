#include "report.h"

#include "json_writer.h"

#include <cstdio>

namespace lab {

namespace {

void add_ports(JsonWriter &json, const char *key, uint8_t mask)
{
    json.open('[', key);
    for (unsigned port = 0; port < port_count; port++) {
        if (mask >> port & 1) {
            json.number(nullptr, port);
        }
    }
    json.close(']');
}

void add_phy(JsonWriter &json, const Phy &phy)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    LinkMode mode{0, false};
    json.truth("link", phy_mode(phy, mode))
        .truth("cable", phy.cable.load(relaxed) != 0)
        .truth("power", (phy.reg[0].load(relaxed) & bmcr_power_down) == 0)
        .number("speed", mode.speed)
        .truth("full_duplex", mode.full_duplex)
        .number("losses", phy.losses.load(relaxed));
}

void add_port(JsonWriter &json, VirtualSwitch &device, unsigned port)
{
    const bool cpu = port >= front_ports;
    json.open('{').number("port", port).string("name", port_name(port)).truth("cpu", cpu);
    if (cpu) {
        json.truth("link", true);
    } else {
        add_phy(json, device.phy(port));
        json.number("pvid", device.registers().pvid(port));
    }
    const PortCounters &counters = device.forwarder().counters(port);
    json.number("rx_frames", counters.rx_frames)
        .number("rx_bytes", counters.rx_bytes)
        .number("tx_frames", counters.tx_frames)
        .number("tx_bytes", counters.tx_bytes)
        .number("tx_failed", device.write_failures(port))
        .open('{', "drops");
    for (size_t i = 0; i < drop_reasons; i++) {
        json.number(drop_name(static_cast<Drop>(i)), counters.drops[i]);
    }
    json.close('}').close('}');
}

std::string address_text(uint64_t mac)
{
    char text[18];
    const auto octet = [&](unsigned shift) { return static_cast<unsigned>(mac >> shift & 0xff); };
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", octet(40), octet(32), octet(24), octet(16),
             octet(8), octet(0));
    return text;
}

} // namespace

std::string status_json(VirtualSwitch &device)
{
    JsonWriter json;
    json.open('{').open('[', "ports");
    for (unsigned port = 0; port < port_count; port++) {
        if (device.forwarder().exists(port)) {
            add_port(json, device, port);
        }
    }
    json.close(']').open('[', "vlans");
    for (unsigned i = 0; i < vlan_entries; i++) {
        const VlanEntry entry = device.registers().entry(i);
        json.open('{').number("entry", i).truth("free", entry.free()).number("vid", entry.vid);
        add_ports(json, "members", entry.members);
        add_ports(json, "untag", entry.untag);
        json.close('}');
    }
    const MacTable &macs = device.forwarder().mac_table();
    json.close(']')
        .truth("untag_enabled", device.registers().untag_enabled())
        .number("macs", macs.size())
        .number("mac_capacity", macs.capacity())
        .close('}');
    return json.result();
}

std::string mac_json(VirtualSwitch &device)
{
    const uint64_t now = monotonic_ms();
    JsonWriter json;
    json.open('{').open('[', "macs");
    for (const MacEntry &entry : device.forwarder().mac_table().entries()) {
        json.open('{')
            .number("vid", entry.vid)
            .string("mac", address_text(entry.mac))
            .number("port", entry.port)
            .number("age_ms", now - entry.heard)
            .close('}');
    }
    json.close(']').close('}');
    return json.result();
}

std::string error_json(const std::string &text)
{
    JsonWriter json;
    json.open('{').string("error", text).close('}');
    return json.result();
}

} // namespace lab
