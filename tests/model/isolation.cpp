#include "isolation.h"

#include "plan/trace_call.h"

#include <cstdlib>

namespace model {

namespace {

std::string words_of(const PortPair &pair)
{
    return std::to_string(pair.first) + "-" + std::to_string(pair.second);
}

} // namespace

Switch switch_in(const lab::SwitchRegs &registers)
{
    Switch out;
    for (unsigned i = 0; i < table_size; i++) {
        const lab::VlanEntry entry = registers.entry(i);
        out.table[i].vid = entry.vid;
        for (unsigned port = 0; port < lab::port_count; port++) {
            if (entry.members >> port & 1) {
                out.table[i].members.insert(port);
            }
        }
    }
    for (unsigned port = 0; port < front_ports; port++) {
        out.pvid[port] = registers.pvid(port);
    }
    out.port_vlans_untagged = registers.untag_enabled();
    return out;
}

bool Isolation::write(const std::string &line)
{
    const auto call = seam::plan::call_of(line);
    if (!call || (call->name != "switch_write" && call->name != "mtklib_cpu_reg_wr")) {
        return false;
    }
    const auto number = [&](size_t index) {
        return static_cast<uint32_t>(std::strtoul(call->argument(index).c_str(), nullptr, 16));
    };
    const uint32_t block = call->name == "switch_write" ? 0 : seam::Hardware::register_block;
    block_.at((number(0) - block) / 4) = number(1);
    ++writes_;
    return true;
}

std::string Isolation::way(const std::vector<std::string> &trace, const Opening &opening)
{
    std::vector<Switch> steps{switch_in(lab::SwitchRegs(block_.data()))};
    for (const std::string &line : trace) {
        if (write(line)) {
            steps.push_back(switch_in(lab::SwitchRegs(block_.data())));
        }
    }
    std::string out;
    const PortPairs at_first = steps.front().joined();
    PortPairs before = at_first;
    PortPairs never_parted = at_first;
    const PortPairs at_end = steps.back().joined();
    for (size_t i = 1; i < steps.size(); ++i) {
        const PortPairs now = steps[i].joined();
        std::erase_if(never_parted, [&](const PortPair &pair) { return !now.contains(pair); });
        for (const PortPair &pair : now) {
            if (at_end.contains(pair) || never_parted.contains(pair)) {
                continue;
            }
            const bool lans = opening.lans.contains(pair.first) && opening.lans.contains(pair.second);
            const bool one_write = !before.contains(pair) && !steps.at(i + 1).joined().contains(pair);
            const bool no_vlan = steps[i].pvid[pair.first] == 0 || steps[i].pvid[pair.second] == 0;
            if (lans) {
                ++among_lans_;
            } else if (opening.clears_table && no_vlan && (one_write || at_first.contains(pair))) {
                ++by_clearing_;
            } else {
                out += "ports " + words_of(pair) + " meet at write " + std::to_string(i) + "\n";
            }
        }
        before = now;
    }
    return out;
}

} // namespace model
