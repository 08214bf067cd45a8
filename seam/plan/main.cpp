// ivarode-plan: what the daemon would do. It runs the daemon that ships on a simulated router, reads the
// trace, and says in words what happened.

#include "plan/daemon_run.h"
#include "plan/diff.h"
#include "plan/inputs.h"
#include "plan/leftovers.h"
#include "plan/now.h"
#include "plan/options.h"
#include "plan/print.h"
#include "plan/request.h"
#include "plan/story.h"
#include "text.h"

#include <cstdio>
#include <unistd.h>

namespace seam::plan {

namespace {

enum ExitStatus { as_wanted = 0, refused = 1, unusable = 2, ports_meet = 3, drifted = 4 };

constexpr const char *longest_name = "15"; // of a kernel's device
// Of a start some 1200; one step that needs more repeats itself.
constexpr const char *lines_for_a_step = "20000";

void add_world(ScriptText &script, const Inputs &inputs)
{
    const World &world = inputs.world;
    script.line({"longest-name", longest_name});
    script.line({"check-gateways"});
    script.line({"mac", mac_text(world.mac.data())});
    script.line({"cpu", std::to_string(world.cpu)});
    for (size_t i = 0; i < world.ports.size(); ++i) {
        if (const auto &ether = world.ports[i]) {
            script.line(
                {"port", std::to_string(i), std::to_string(ether->role), std::to_string(ether->hw_port)});
        }
    }
    Facts there = facts(world.system);
    there.merge(facts(world.hardware));
    for (const auto &[key, value] : there) {
        script.line({"fact", value.empty() ? key : key + " = " + value});
    }
    for (const std::string &package : world.packages) {
        script.line({"package", package});
    }
    for (const Section &section : world.sections) {
        script.line({"section", section.package, section.type, section.name});
        for (const auto &[name, value] : section.options) {
            script.line({"option", name, value});
        }
    }
}

// False after a report.
bool add_step(ScriptText &script, const Step &step)
{
    switch (step.kind) {
    case Step::Kind::call:
        script.line({"call", step.object, step.method, "any"});
        if (const std::string error = add_message(script, step.message); !error.empty()) {
            complain("--call \"" + step.said + "\": the message " + error);
            return false;
        }
        break;
    case Step::Kind::link:
        script.line({"link", std::to_string(step.port), step.up ? "1" : "0"});
        break;
    case Step::Kind::address:
        script.line({"address", std::to_string(step.address), "1"});
        break;
    }
    return true;
}

bool build_script(ScriptText &script, const Options &options, const Inputs &inputs)
{
    add_world(script, inputs);
    script.line({"limit", lines_for_a_step});
    script.line({"show-changes"});
    script.line({"loop"});
    for (size_t i = 0; i < options.steps.size(); ++i) {
        script.line({"step", std::to_string(i)});
        script.line({"limit", lines_for_a_step});
        if (!add_step(script, options.steps[i])) {
            return false;
        }
    }
    script.line({"step", "end"});
    return true;
}

// The ports that have link say so as soon as the daemon listens, as the platform library has it.
void add_links(const Now &now, Options &options)
{
    std::vector<Step> links;
    for (unsigned port = 0; port < now.links.size(); ++port) {
        if (now.links[port]) {
            links.push_back({Step::Kind::link, "link of port " + std::to_string(port) + " up, as now"});
            links.back().port = port;
            links.back().up = true;
        }
    }
    options.steps.insert(options.steps.begin(), links.begin(), links.end());
}

bool shown(const std::string &text)
{
    return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

int show(const Story &story, const Options &options, const Inputs &inputs)
{
    const int status = story.ports_meet() ? ports_meet : story.refused() ? refused : as_wanted;
    const bool colours = isatty(STDOUT_FILENO) != 0;
    return shown(options.json    ? for_programs(story, options, inputs, status)
                 : options.quiet ? only_wrong(story, options, inputs, colours)
                                 : for_person(story, options, inputs, colours))
               ? status
               : unusable;
}

std::set<std::string> all_on(unsigned port)
{
    const std::vector<std::string> all = interfaces_on(port);
    return {all.begin(), all.end()};
}

// The story has left the world as a clean start makes it.
int show_drift(const Story &story, const Options &options, const Inputs &machine, const Now &now)
{
    if (story.refused()) {
        complain(std::string{"a clean start would fail here: plan it without "} +
                 (options.diff ? "--diff" : "--leftovers"));
        return refused;
    }
    std::set<std::string> without_link;
    for (unsigned port = 0; port < now.links.size(); ++port) {
        if (!now.links[port]) {
            without_link.merge(all_on(port));
        }
    }
    const std::vector<Difference> found = drift(machine.world, now.rules, world, without_link);
    if (options.leftovers) {
        const std::vector<Leftover> left = leftovers(machine.world, now, world);
        return shown(lines_of(left)) ? found.empty() && left.empty() ? as_wanted : drifted : unusable;
    }
    const int status = found.empty() ? as_wanted : drifted;
    const bool silent = options.quiet && found.empty();
    return shown(options.json ? for_programs(found, status)
                 : silent     ? ""
                              : for_person(found))
               ? status
               : unusable;
}

bool is_present(const Options &options)
{
    return options.from_now || !options.from_file.empty();
}

// What there is, where that is asked for: of a file, or of this machine.
bool read_present(const Options &options, Inputs &machine, Now &now)
{
    if (!options.from_file.empty()) {
        return read_facts(options.from_file, machine, now);
    }
    return (!options.from_now && !options.diff && !options.leftovers) || read_now(machine, now);
}

int plan(Options &options)
{
    Inputs inputs;
    Inputs machine;
    Now now;
    const bool compares = options.diff || options.leftovers;
    if (!read_board(options.board, inputs) || !read_config(options.config, inputs) ||
        !read_present(options, machine, now)) {
        return unusable;
    }
    add_links(now, options);
    if (!compares && is_present(options)) {
        inputs.world.system = machine.world.system;
        inputs.world.hardware = machine.world.hardware;
    }
    ScriptText script;
    DaemonRun run;
    if (!build_script(script, options, inputs) ||
        !run_daemon(options.daemon.empty() ? daemon_beside() : options.daemon, script.text(), run)) {
        return unusable;
    }
    if (!run.said.empty()) {
        std::fputs(run.said.c_str(), stderr);
    }
    const Story story = story_of(run.trace, run.status, options, inputs);
    if (story.calls == 0) {
        complain("the daemon made no call: it is another program, or could not be started");
        return unusable;
    }
    return compares ? show_drift(story, options, machine, now) : show(story, options, inputs);
}

} // namespace

} // namespace seam::plan

int main(int argc, char **argv)
{
    using namespace seam::plan;
    Options options;
    if (!read_options(argc, argv, options)) {
        return unusable;
    }
    if (options.help) {
        std::fputs(help_text, stdout);
        return as_wanted;
    }
    return plan(options);
}
