#include "config_files.h"

#include "text.h"

#include <algorithm>

namespace model {

namespace {

const BoardPlan boards[] = {
    {{{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}}},
    {{{1, 1}, {1, 2}, {2, 3}, {2, 4}, {2, 0}}, true},
    {{{1, 4}, {1, 3}, {3, 2}, {3, 1}, {2, 0}}, false, {0x00, 0x11, 0x22, 0xff, 0xff, 0xfe}},
    {{{1, 0}, {1, 1}, {1, 2}, {2, 3}, {2, 4}}},
};

} // namespace

const BoardPlan &board_of(unsigned seed)
{
    return boards[seed % std::size(boards)];
}

std::string board_file(const BoardPlan &plan)
{
    static constexpr const char *roles[] = {"", "lan", "wan", "lan,wan"};
    std::string ports = "{\"num\":6,\"device\":\"eth0\"},{\"num\":5,\"device\":\"eth1\"}";
    for (size_t i = 0; i < plan.ethernet.size(); ++i) {
        ports += ",{\"index\":" + std::to_string(i) + ",\"num\":" + std::to_string(plan.ethernet[i].second) +
                 ",\"role\":\"" + roles[plan.ethernet[i].first] + "\"}";
    }
    return "{\"system\":{\"label_macaddr\":\"" + seam::mac_text(plan.base.data()) +
           "\"},\"switch\":{\"switch0\":{\"ports\":[" + ports + "]}},\"ivarode\":{\"cpuid\":\"" +
           (plan.two_cpu_ports ? "c7a6e2d1" : "1") + "\"}}";
}

std::vector<Section> for_a_file(std::vector<Section> sections)
{
    std::vector<Section> out;
    for (Section &one : sections) {
        std::replace(one.name.begin(), one.name.end(), '.', '_');
        if (std::none_of(out.begin(), out.end(),
                         [&](const Section &other) { return other.name == one.name; })) {
            out.push_back(one);
        }
    }
    return out;
}

std::string config_file(const std::vector<Section> &sections, const std::string &type)
{
    std::string out;
    for (const Section &one : sections) {
        out += "config " + type + " '" + one.name + "'\n";
        for (const auto &[name, value] : one.fields) {
            out += "\toption " + name + " '" + value + "'\n";
        }
    }
    return out;
}

} // namespace model
