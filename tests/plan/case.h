// A random configuration on one of four boards, sensible or not, with random requests and events behind it:
// as files and words for ivarode-plan, and beside them the oracle, which was taken through the same.
#pragma once

#include "oracle.h"

#include <string>
#include <vector>

namespace model {

struct Case {
    static constexpr unsigned steps = 12;

    // The same seed makes the same case.
    explicit Case(unsigned seed);

    // Lays board.json, config/lan_intf and config/wan_intf into a folder that is there. False: a file could
    // not be written.
    bool write(const std::string &folder) const;

    std::vector<Section> lans, wans;
    Oracle oracle;                  // at the end
    bool started;                   // or the start ends the daemon
    std::vector<std::string> words; // two for each step, as on the command line
    std::vector<int> statuses;      // of each step; none where the start ends the daemon

private:
    const BoardPlan &board_;
};

} // namespace model
