// A plan as programs read it.

#include "plan/json.h"
#include "plan/print.h"
#include "text.h"

namespace seam::plan {

namespace {

constexpr int version = 1;

std::vector<unsigned> ports_in(uint32_t bits)
{
    std::vector<unsigned> out;
    for (unsigned port = 0; port < 8; ++port) {
        if ((bits >> port & 1) != 0) {
            out.push_back(port);
        }
    }
    return out;
}

std::vector<std::string> without_passwords(std::vector<std::string> facts)
{
    for (std::string &fact : facts) {
        fact = without_password(fact);
    }
    return facts;
}

Json json_of(const Message &message)
{
    return JsonTable{}
        .add("level", message.level)
        .add("text", message.text)
        .add("operations", message.operations)
        .take();
}

Json json_of(const Operation &operation)
{
    return JsonTable{}
        .add("area", name_of(operation.area))
        .add("words", operation.words)
        .add("call", operation.call)
        .add("result", operation.result)
        .add("changes", without_passwords(operation.changes))
        .take();
}

Json json_of(const ReachStep &step)
{
    Json pairs{json_object_new_array()};
    for (unsigned a = 0; a < step.reach.to.size(); ++a) {
        for (unsigned b = a + 1; b < step.reach.to.size(); ++b) {
            if (step.reach.joined(a, b)) {
                json_object_array_add(pairs.get(), plan::json_of(std::vector<unsigned>{a, b}).release());
            }
        }
    }
    return JsonTable{}.add("write", step.write).add("joined", std::move(pairs)).take();
}

Json json_of(const Meeting &meeting)
{
    return JsonTable{}
        .add("ports", std::vector<unsigned>{meeting.a, meeting.b})
        .add("lan_and_wan", meeting.lan_and_wan)
        .add("write", meeting.write)
        .add("writes", meeting.writes)
        .add("lasts", meeting.lasts)
        .add("by_layout", meeting.by_layout)
        .take();
}

Json json_of(const Phase &phase);

template <class Element> Json list_of(const std::vector<Element> &elements)
{
    Json out{json_object_new_array()};
    for (const Element &element : elements) {
        json_object_array_add(out.get(), json_of(element).release());
    }
    return out;
}

Json json_of(const Phase &phase)
{
    JsonTable out;
    out.add("kind", phase.kind).add("said", phase.said).add("refused", phase.refused);
    if (phase.status) {
        out.add("status", *phase.status);
    }
    return out.add("messages", list_of(phase.messages))
        .add("operations", list_of(phase.operations))
        .add("changes", without_passwords(phase.changes))
        .add("reach", list_of(phase.reach))
        .add("last_write", phase.last_write)
        .add("meetings", list_of(phase.meetings))
        .take();
}

Json ports(const Inputs &inputs)
{
    Json out{json_object_new_array()};
    for (unsigned port = 0; port < Hardware::front_ports; ++port) {
        JsonTable one;
        one.add("port", port)
            .add("serves", inputs.serves(port))
            .add("pvid", world.hardware.pvid(port))
            .add("interfaces", plan::json_of(interfaces_on(port)));
        json_object_array_add(out.get(), one.take().release());
    }
    return out;
}

Json vlans()
{
    Json out{json_object_new_array()};
    for (uint32_t i = 0; i < Hardware::vlan_entries; ++i) {
        const Hardware::VlanEntry entry = world.hardware.vlan_entry(i);
        if (entry == Hardware::VlanEntry{}) {
            continue;
        }
        JsonTable one;
        one.add("entry", i)
            .add("vid", entry.vid)
            .add("members", ports_in(entry.members))
            .add("untagged", ports_in(world.hardware.untagging() ? world.hardware.untagged(i) : 0));
        json_object_array_add(out.get(), one.take().release());
    }
    return out;
}

Json interfaces()
{
    JsonTable out;
    for (const auto &[name, device] : world.system.devices) {
        if (!device.kind.empty()) {
            out.add(name.c_str(), JsonTable{}
                                      .add("kind", device.kind)
                                      .add("bridge", device.bridge)
                                      .add("mac", device.mac)
                                      .add("address", device.address)
                                      .add("netmask", device.mask)
                                      .add("up", device.up)
                                      .take());
        }
    }
    return out.take();
}

// Everything that stays, as facts.
Json end(const Inputs &inputs)
{
    std::vector<std::string> lines =
        parts(lines_of(facts(world.system)) + lines_of(facts(world.hardware)), "\n");
    lines.pop_back();
    return JsonTable{}
        .add("ports", ports(inputs))
        .add("vlans", vlans())
        .add("interfaces", interfaces())
        .add("facts", without_passwords(lines))
        .take();
}

} // namespace

std::string for_programs(const Story &story, const Options &options, const Inputs &inputs, int status)
{
    std::vector<std::string> not_reached;
    for (size_t i = story.phases.size() - 1; i < options.steps.size(); ++i) {
        not_reached.push_back(options.steps[i].said);
    }
    const Json out = JsonTable{}
                         .add("version", version)
                         .add("status", status)
                         .add("ending", story.ending)
                         .add("writes", story.writes)
                         .add("phases", list_of(story.phases))
                         .add("changes", without_passwords(story.changes))
                         .add("not_reached", not_reached)
                         .add("end", end(inputs))
                         .take();
    return std::string{json_object_to_json_string_ext(out.get(), JSON_C_TO_STRING_PRETTY |
                                                                     JSON_C_TO_STRING_SPACED |
                                                                     JSON_C_TO_STRING_NOSLASHESCAPE)} +
           "\n";
}

} // namespace seam::plan
