#include "plan/isolation.h"

#include <algorithm>

namespace seam::plan {

namespace {

constexpr uint32_t front_mask = (1U << Hardware::front_ports) - 1;

// The front ports that are members of the first entry with a VLAN.
uint32_t members_of(const std::array<Hardware::VlanEntry, Hardware::vlan_entries> &table, uint32_t vid)
{
    const auto *found = std::find_if(table.begin(), table.end(), [&](const Hardware::VlanEntry &entry) {
        return entry.vid == vid && (vid != 0 || entry.members != 0);
    });
    return found == table.end() ? 0 : found->members & front_mask;
}

bool lan_and_wan_of(const Sides &sides, unsigned a, unsigned b)
{
    const auto serves = [&](unsigned port) { return sides[port].may_be_lan || sides[port].may_be_wan; };
    return sides[a].is_wan != sides[b].is_wan && serves(a) && serves(b);
}

class Judge {
public:
    explicit Judge(const ReachPhase &phase)
        : steps_{phase.steps}, last_write_{phase.last_write}, before_{phase.before}, after_{phase.after}
    {}

    // At the steps that are bad for two ports.
    std::vector<Meeting> judge(unsigned a, unsigned b) const
    {
        std::vector<Meeting> out;
        const bool lan_and_wan = lan_and_wan_of(after_, a, b);
        const bool at_end = steps_.back().reach.joined(a, b);
        bool allowed = !lan_and_wan_of(before_, a, b) && steps_.front().reach.joined(a, b);
        for (size_t i = 0; i < steps_.size(); ++i) {
            const bool joined = steps_[i].reach.joined(a, b);
            allowed = allowed && joined;
            if (!joined || allowed || (at_end && !lan_and_wan)) {
                continue;
            }
            if (i > 0 && steps_[i - 1].reach.joined(a, b)) {
                out.back().writes += length(i);
            } else {
                out.push_back({a, b, lan_and_wan, steps_[i].write, length(i), false, false});
            }
            out.back().lasts = i + 1 == steps_.size();
        }
        return out;
    }

private:
    // For how many writes a step holds: from its own to the one before the next step's.
    unsigned length(size_t i) const
    {
        const unsigned end = i + 1 < steps_.size() ? steps_[i + 1].write : last_write_ + 1;
        return end - steps_[i].write;
    }

    const std::vector<ReachStep> &steps_;
    unsigned last_write_;
    const Sides &before_;
    const Sides &after_;
};

} // namespace

Reach reach_of(const Hardware &hardware)
{
    std::array<Hardware::VlanEntry, Hardware::vlan_entries> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        table[i] = hardware.vlan_entry(i);
    }
    Reach out;
    const auto join = [&](unsigned port, uint32_t vid) {
        if (const uint32_t members = members_of(table, vid); (members >> port & 1) != 0) {
            out.to[port] = static_cast<uint8_t>(out.to[port] | (members & ~(1U << port)));
        }
    };
    for (unsigned port = 0; port < out.to.size(); ++port) {
        join(port, hardware.pvid(port));
        for (const Hardware::VlanEntry &entry : table) {
            // Tag 0 says no more than none.
            if (entry.vid != 0) {
                join(port, entry.vid);
            }
        }
    }
    return out;
}

std::string words_of(const Reach &reach)
{
    std::string out;
    for (unsigned a = 0; a < reach.to.size(); ++a) {
        for (unsigned b = a + 1; b < reach.to.size(); ++b) {
            if (reach.joined(a, b)) {
                out += (out.empty() ? "" : " ") + std::to_string(a) + "-" + std::to_string(b);
            }
        }
    }
    return out.empty() ? "none reaches another" : out;
}

std::vector<Meeting> meetings_of(const ReachPhase &phase)
{
    const Sides &sides = phase.after;
    std::vector<Meeting> out;
    const Judge judge{phase};
    for (unsigned a = 0; a < sides.size(); ++a) {
        for (unsigned b = a + 1; b < sides.size(); ++b) {
            for (Meeting &meeting : judge.judge(a, b)) {
                meeting.by_layout =
                    phase.is_start && !meeting.lasts && sides[a].may_be_lan && sides[b].may_be_lan;
                out.push_back(meeting);
            }
        }
    }
    return out;
}

} // namespace seam::plan
