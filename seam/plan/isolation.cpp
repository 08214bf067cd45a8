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

class Judge {
public:
    Judge(const std::vector<ReachStep> &steps, unsigned last_write) : steps_{steps}, last_write_{last_write}
    {}

    // At the steps that are bad for two ports.
    std::vector<Meeting> judge(unsigned a, unsigned b, bool lan_and_wan) const
    {
        std::vector<Meeting> out;
        const bool at_end = steps_.back().reach.joined(a, b);
        bool allowed = !lan_and_wan && steps_.front().reach.joined(a, b);
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

std::vector<Meeting> meetings_of(const std::vector<ReachStep> &steps, unsigned last_write, const Sides &sides,
                                 bool is_start)
{
    const auto serves = [&](unsigned port) { return sides[port].may_be_lan || sides[port].may_be_wan; };
    std::vector<Meeting> out;
    const Judge judge{steps, last_write};
    for (unsigned a = 0; a < sides.size(); ++a) {
        for (unsigned b = a + 1; b < sides.size(); ++b) {
            const bool lan_and_wan = sides[a].is_wan != sides[b].is_wan && serves(a) && serves(b);
            for (Meeting &meeting : judge.judge(a, b, lan_and_wan)) {
                meeting.by_layout = is_start && !meeting.lasts && sides[a].may_be_lan && sides[b].may_be_lan;
                out.push_back(meeting);
            }
        }
    }
    return out;
}

} // namespace seam::plan
