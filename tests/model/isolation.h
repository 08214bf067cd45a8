// Which front ports share a VLAN on the way through a step of the daemon: after each single write to a
// register of the switch, by the trace of the step.
#pragma once

#include "switch.h"
#include "switch_regs.h"

#include <cstdint>
#include <string>
#include <vector>

namespace model {

Switch switch_in(const lab::SwitchRegs &registers);

class Isolation {
public:
    // All registers are 0.
    void switched_on() { block_.assign(block_.size(), 0); }
    // What the order of a step opens for a moment.
    struct Opening {
        // Ports that may meet at any time of it.
        std::set<unsigned> lans = {};
        // For a single write, while an entry of the table has lost its VLAN and not yet its members, a port
        // without a VLAN may meet these; and those once more that it met before.
        bool clears_table = false;
    };
    // The writes of a trace are done to the registers that are kept here. Empty, or the ports that meet on
    // the way though they should not: two that are joined neither before nor after, or once more after they
    // were parted.
    std::string way(const std::vector<std::string> &trace, const Opening &opening);

    const std::vector<uint32_t> &registers() const { return block_; }
    unsigned writes() const { return writes_; }
    // How many pairs were joined for a write in these ways.
    unsigned among_lans() const { return among_lans_; }
    unsigned by_clearing() const { return by_clearing_; }

private:
    bool write(const std::string &line);

    std::vector<uint32_t> block_ = std::vector<uint32_t>(lab::switch_block_size / 4);
    unsigned writes_ = 0;
    unsigned among_lans_ = 0;
    unsigned by_clearing_ = 0;
};

} // namespace model
