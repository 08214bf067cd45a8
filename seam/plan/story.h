// What the daemon did, phase by phase: the start, then each step that was asked for.
#pragma once

#include "plan/inputs.h"
#include "plan/isolation.h"
#include "plan/operation.h"
#include "plan/options.h"

#include <optional>
#include <string>
#include <vector>

namespace seam::plan {

struct Message {
    std::string level;
    std::string text;  // without its end of line
    size_t operations; // of its phase that came before
};

struct Phase {
    std::string kind; // "start", "call", "link", "address"
    std::string said; // the step as a person says it
    // Of a call the status on the bus, of an event what its handler returns; nothing for the start, and where
    // the daemon never came to an end of the step.
    std::optional<long> status = {};
    bool refused = true;
    std::vector<Message> messages = {};
    std::vector<Operation> operations = {};
    std::vector<ReachStep> reach = {}; // the first is what was before
    unsigned last_write = 0;
    std::vector<Meeting> meetings = {};
    std::vector<std::string> changes = {}; // facts that differ from before, as they are stated
    std::string switch_changes = {};       // what differs in the switch, decoded
};

struct Story {
    std::vector<Phase> phases;
    std::string ending;  // why the daemon ended or was ended; empty: it was there at the end
    unsigned writes = 0; // to registers of the switch
    unsigned calls = 0;  // of any kind
    std::vector<std::string> changes = {}; // facts of the end that differ from those before the start

    bool refused() const;
    bool ports_meet() const; // otherwise than by the start's layout
};

// Reads a trace. The world is that of the trace from here on, at its end as the daemon left it.
Story story_of(const std::string &trace, int wait_status, const Options &options, const Inputs &inputs);

// The interfaces that stand on a front port: those with a device of a VLAN that the port is a member of.
std::vector<std::string> interfaces_on(unsigned port);

} // namespace seam::plan
