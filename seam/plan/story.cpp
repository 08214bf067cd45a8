#include "plan/story.h"

#include "plan/now.h"
#include "plan/switch_words.h"
#include "text.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>

namespace seam::plan {

namespace {

constexpr int endless_status = 99; // of the trace's limit
constexpr unsigned lan_role = 1;
constexpr unsigned wan_role = 2;

bool is_wan(const std::string &interface)
{
    return interface.starts_with("wan");
}

const char *kind_of(Step::Kind kind)
{
    return kind == Step::Kind::call ? "call" : kind == Step::Kind::link ? "link" : "address";
}

// Errors, warnings and notices stand in the system log; the others on the platform's output alone.
std::optional<Message> message_of(const TraceCall &call)
{
    static constexpr const char *levels[] = {"error", "error", "error", "error", "warning", "notice"};
    std::string level;
    if (call.name == "syslog") {
        const auto number = static_cast<size_t>(std::atoi(call.argument(0).c_str()));
        level = number < std::size(levels) ? levels[number] : "info";
    } else if (call.name == "outlib_info" || call.name == "outlib_debug") {
        level = call.name.substr(call.name.find('_') + 1);
    } else {
        return {};
    }
    std::string text = call.argument(call.arguments.size() - 1);
    text.erase(text.find_last_not_of("\r\n") + 1);
    text.erase(0, text.find_first_not_of("\r\n"));
    return Message{level, without_password(text), 0};
}

// True for a write to a register of the switch, which is done to the world too.
bool write_register(const TraceCall &call)
{
    const bool by_driver = call.name == "switch_write";
    if (!by_driver && call.name != "mtklib_cpu_reg_wr") {
        return false;
    }
    const auto number = [&](size_t index) {
        return static_cast<uint32_t>(std::strtoul(call.argument(index).c_str(), nullptr, 16));
    };
    if (call.result == 0) {
        world.hardware.write(number(0) - (by_driver ? 0 : Hardware::register_block), number(1));
    }
    return true;
}

// A port that may serve either is a WAN's while one stands on its VLAN.
Sides sides_of(const Inputs &inputs)
{
    Sides out{};
    for (unsigned port = 0; port < out.size(); ++port) {
        const unsigned role = inputs.role(port);
        const std::vector<std::string> all = interfaces_on(port);
        Side &side = out[port];
        side.may_be_lan = (role & lan_role) != 0;
        side.may_be_wan = (role & wan_role) != 0;
        side.is_wan = side.may_be_wan && (!side.may_be_lan || std::any_of(all.begin(), all.end(), is_wan));
    }
    return out;
}

class Reader {
public:
    Reader(const Options &options, const Inputs &inputs, Story &story)
        : options_{options}, inputs_{inputs}, story_{story}
    {}

    void read(const std::string &trace)
    {
        const std::vector<std::string> lines = parts(trace, "\n");
        size_t at = 0;
        for (; at < lines.size() && is_change(lines[at]); ++at) {
            state_fact(change_in(lines[at]));
        }
        changed_facts();
        const Facts before = facts_of_world();
        begin("start", "start");
        for (; at < lines.size() && !at_end_; ++at) {
            read_line(lines[at]);
        }
        end();
        story_.changes = differences(before, facts_of_world());
    }
    // The daemon did everything that was asked for.
    bool at_end() const { return at_end_; }

private:
    Phase &phase() { return story_.phases.back(); }
    static bool is_change(const std::string &line) { return line.starts_with("changed \""); }
    static std::string change_in(const std::string &line)
    {
        size_t at = line.find('"');
        return unquoted(line, at);
    }

    void begin(const std::string &kind, const std::string &said)
    {
        story_.phases.push_back({kind, said});
        phase().reach.push_back({story_.writes, reach_of(world.hardware)});
        in_operation_ = false;
        switch_before_ = world.hardware;
        sides_before_ = sides_of(inputs_);
    }
    void end()
    {
        phase().last_write = story_.writes;
        phase().changes = changed_facts();
        phase().switch_changes = switch_change(switch_before_, world.hardware);
        const Sides sides = sides_of(inputs_);
        phase().meetings =
            meetings_of({phase().reach, story_.writes, sides_before_, sides, phase().kind == "start"});
    }

    void read_line(const std::string &line)
    {
        if (is_change(line)) {
            const std::string fact = change_in(line);
            const bool says_more = !says_the_same(fact);
            state_fact(fact);
            if (in_operation_ && says_more) {
                phase().operations.back().changes.push_back(fact);
            }
        } else if (line.starts_with("> ")) {
            next(line.substr(2, line.find(' ', 2) - 2));
        } else if (line.starts_with("status ") || line.starts_with("returned ")) {
            phase().status = std::strtol(line.c_str() + line.find(' '), nullptr, 10);
            phase().refused = phase().status != 0;
        } else if (const auto call = call_of(line)) {
            take(*call);
        }
    }

    void next(const std::string &key)
    {
        if (phase().kind == "start") {
            phase().refused = false;
        }
        at_end_ = key == "end";
        if (!at_end_) {
            end();
            const Step &step = options_.steps.at(static_cast<size_t>(std::atoi(key.c_str())));
            begin(kind_of(step.kind), step.said);
        }
    }

    void take(const TraceCall &call)
    {
        ++story_.calls;
        if (auto message = message_of(call)) {
            message->operations = phase().operations.size();
            phase().messages.push_back(*message);
            return;
        }
        auto operation = operation_of(call);
        in_operation_ = operation.has_value();
        if (!in_operation_) {
            return;
        }
        const Hardware before = world.hardware;
        if (write_register(call)) {
            ++story_.writes;
            if (const Reach now = reach_of(world.hardware); now != phase().reach.back().reach) {
                phase().reach.push_back({story_.writes, now});
            }
            const std::string change = switch_change(before, world.hardware);
            operation->words = change.empty() && call.result == 0 ? operation->words + ", as before" : change;
        }
        phase().operations.push_back(*operation);
    }

    const Options &options_;
    const Inputs &inputs_;
    Story &story_;
    Hardware switch_before_;
    Sides sides_before_;
    bool at_end_ = false;
    bool in_operation_ = false;
};

std::string ending_of(const std::string &trace, int wait_status)
{
    if (WIFSIGNALED(wait_status)) {
        const int signal = WTERMSIG(wait_status);
        const bool limit = signal == SIGALRM || signal == SIGXCPU || signal == SIGKILL;
        return limit ? "the daemon stood still or looped, and was ended"
                     : "the daemon was ended by signal " + std::to_string(signal) + " (" +
                           plain(strsignal(signal)) + ")";
    }
    const int status = WEXITSTATUS(wait_status);
    if (status == endless_status && trace.ends_with("\nendless\n")) {
        return "the daemon repeats its calls for ever, and was ended";
    }
    return "the daemon ended with status " + std::to_string(status > 127 ? status - 256 : status);
}

} // namespace

bool Story::refused() const
{
    return !ending.empty() ||
           std::any_of(phases.begin(), phases.end(), [](const Phase &phase) { return phase.refused; });
}

bool Story::ports_meet() const
{
    return std::any_of(phases.begin(), phases.end(), [](const Phase &phase) {
        return std::any_of(phase.meetings.begin(), phase.meetings.end(),
                           [](const Meeting &one) { return !one.by_layout; });
    });
}

std::vector<std::string> interfaces_on(unsigned port)
{
    std::vector<std::string> out;
    for (const auto &[name, device] : world.system.devices) {
        // eth0.100 or eth0.100.2: the switch sees the outer VLAN.
        const std::vector<std::string> names = parts(name, ".");
        if (device.bridge.empty() || names.size() < 2) {
            continue;
        }
        const auto vid = static_cast<uint32_t>(std::atoi(names[1].c_str()));
        for (uint32_t i = 0; i < Hardware::vlan_entries; ++i) {
            const Hardware::VlanEntry entry = world.hardware.vlan_entry(i);
            if (entry.vid == vid && (entry.members >> port & 1) != 0) {
                out.push_back(device.bridge);
            }
        }
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

Story story_of(const std::string &trace, int wait_status, const Options &options, const Inputs &inputs)
{
    world = inputs.world;
    world.system.devices.clear();
    Story story;
    Reader reader{options, inputs, story};
    reader.read(trace);
    if (!reader.at_end() || wait_status != 0) {
        story.ending = ending_of(trace, wait_status);
    }
    return story;
}

} // namespace seam::plan
