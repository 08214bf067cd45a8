#include "plan/switch_words.h"

namespace seam::plan {

namespace {

constexpr uint32_t cpu_port = 6;
constexpr uint32_t second_cpu_port = 5;
constexpr uint32_t all_ports = 8;

void join(std::string &out, const std::string &words)
{
    out += (out.empty() ? "" : ", ") + words;
}

void ports_words(std::string &out, uint32_t bits, const char *verb)
{
    if (bits != 0) {
        join(out, ((bits & (bits - 1)) == 0 ? "port " : "ports ") + port_list(bits) + " " + verb);
    }
}

std::string entry_change(uint32_t index, const Hardware &before, const Hardware &after)
{
    const Hardware::VlanEntry old = before.vlan_entry(index);
    const Hardware::VlanEntry now = after.vlan_entry(index);
    std::string out;
    if (old.vid != now.vid) {
        join(out, "VLAN " + std::to_string(now.vid) + " (was " + std::to_string(old.vid) + ")");
    }
    ports_words(out, now.members & ~old.members, "in");
    ports_words(out, old.members & ~now.members, "out");
    if (before.untagged(index) != after.untagged(index)) {
        join(out, "untagged at ports " + port_list(after.untagged(index)));
    }
    return out.empty() ? out : "entry " + std::to_string(index) + ": " + out;
}

} // namespace

std::string port_list(uint32_t bits)
{
    std::string out;
    for (uint32_t port = 0; port < all_ports; ++port) {
        if ((bits >> port & 1) != 0) {
            out += out.empty() ? "" : " ";
            out += port == cpu_port ? "CPU" : port == second_cpu_port ? "CPU2" : std::to_string(port);
        }
    }
    return out;
}

std::string switch_change(const Hardware &before, const Hardware &after)
{
    std::string out;
    for (uint32_t i = 0; i < Hardware::vlan_entries; ++i) {
        if (const std::string entry = entry_change(i, before, after); !entry.empty()) {
            join(out, entry);
        }
    }
    for (uint32_t port = 0; port < Hardware::front_ports; ++port) {
        if (before.pvid(port) != after.pvid(port)) {
            join(out, "port " + std::to_string(port) + ": PVID " + std::to_string(after.pvid(port)) +
                          " (was " + std::to_string(before.pvid(port)) + ")");
        }
    }
    if (before.untagging() != after.untagging()) {
        join(out, after.untagging() ? "untagging on" : "untagging off");
    }
    return out;
}

} // namespace seam::plan
