// What a router has, from facts that were written down.

#include "plan/now.h"
#include "plan/options.h"
#include "text.h"

namespace seam::plan {

namespace {

constexpr uint32_t connected_rule = 10001;

// What else follows from facts: a rule for each WAN that has one, MACs that were set.
void read_more(const System &system, Now &now)
{
    for (const auto &[key, nothing] : system.policies) {
        now.rules.insert(static_cast<uint32_t>(key.first));
    }
    if (!now.rules.empty()) {
        now.rules.insert(connected_rule);
    }
    for (const auto &[name, device] : system.devices) {
        if (device.kind == "bridge" && !device.mac.empty()) {
            now.own_macs.insert(name);
        }
    }
    for (const auto &[route, nothing] : system.routes) {
        if (const size_t at = route.find(" dev "); at != route.npos) {
            now.route_devices[route] = words(route.substr(at))[1];
        }
    }
}

} // namespace

bool read_facts(const std::string &path, Inputs &inputs, Now &now)
{
    const Text text = file_text(path);
    if (!text) {
        complain(path + ": cannot be read");
        return false;
    }
    world.system = {};
    world.system.devices.clear();
    for (const std::string &line : parts(*text, "\n")) {
        if (!line.empty() && !state_fact(line)) {
            complain(path + ": no fact is \"" + plain(line.c_str()) + "\"");
            return false;
        }
    }
    inputs.world.system = world.system;
    inputs.world.hardware = world.hardware;
    read_more(inputs.world.system, now);
    return true;
}

} // namespace seam::plan
