// The end of a plan, drawn: ports, VLAN table, interfaces, routes, clients.

#include "plan/operation.h"
#include "plan/print.h"
#include "plan/switch_words.h"
#include "text.h"

#include <algorithm>

namespace seam::plan {

namespace {

// How many places a text takes; those behind the first byte of a character take none.
size_t places(const std::string &text)
{
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string left(const std::string &text, size_t width)
{
    return text + std::string(width > places(text) ? width - places(text) : 0, ' ');
}

std::string right(const std::string &text, size_t width)
{
    return std::string(width > places(text) ? width - places(text) : 0, ' ') + text;
}

std::string centred(const std::string &text, size_t width)
{
    return left(std::string((width - places(text)) / 2, ' ') + text, width);
}

std::string repeated(const std::string &text, size_t times)
{
    std::string out;
    for (size_t i = 0; i < times; ++i) {
        out += text;
    }
    return out;
}

std::string or_else(const std::string &text, const char *other)
{
    return text.empty() ? other : text;
}

struct Box {
    bool used;
    std::vector<std::string> lines;
};

std::string edge(size_t boxes, size_t width, const char *begin, const char *end)
{
    return "  " + repeated(begin + repeated("─", width) + end + " ", boxes - 1) + begin +
           repeated("─", width) + end + "\n";
}

std::string ports(const Inputs &inputs, bool colours)
{
    std::vector<Box> boxes;
    size_t interfaces = 0;
    for (unsigned port = 0; port < Hardware::front_ports; ++port) {
        interfaces = std::max(interfaces, interfaces_on(port).size());
    }
    size_t width = 13;
    for (unsigned port = 0; port < Hardware::front_ports; ++port) {
        std::vector<std::string> lines{"port " + std::to_string(port), or_else(inputs.serves(port), "unused"),
                                       "PVID " + std::to_string(world.hardware.pvid(port))};
        const std::vector<std::string> on = interfaces_on(port);
        lines.insert(lines.end(), on.begin(), on.end());
        lines.resize(3 + std::max<size_t>(interfaces, 1), "");
        for (const std::string &line : lines) {
            width = std::max(width, places(line) + 2);
        }
        boxes.push_back({!on.empty(), lines});
    }
    std::string out = edge(boxes.size(), width, "┌", "┐");
    for (size_t at = 0; at < boxes.front().lines.size(); ++at) {
        out += " ";
        for (const Box &box : boxes) {
            const std::string text = centred(box.lines[at], width);
            out += " │";
            out += at == 0  ? painted(colours, Style::head, text)
                   : at > 2 ? painted(colours, Style::up, text)
                            : text;
            out += "│";
        }
        out += "\n";
    }
    return out + edge(boxes.size(), width, "└", "┘");
}

std::string vlans(bool colours)
{
    std::string out =
        painted(colours, Style::head, "  entry   VID  members            leave untagged") + "\n";
    unsigned free = 0;
    for (uint32_t i = 0; i < Hardware::vlan_entries; ++i) {
        const Hardware::VlanEntry entry = world.hardware.vlan_entry(i);
        if (entry.members == 0) {
            free += i >= Hardware::front_ports && entry.vid == 0 ? 1 : 0;
            continue;
        }
        const uint32_t front = (1U << Hardware::front_ports) - 1;
        const uint32_t bare =
            world.hardware.untagging() ? entry.members & front & world.hardware.untagged(i) : 0;
        out += "  " + right(std::to_string(i), 5) + "  " + right(std::to_string(entry.vid), 4) + "  " +
               left(port_list(entry.members), 17) + "  " + or_else(port_list(bare), "-") + "\n";
    }
    return out +
           painted(colours, Style::dim, "  " + std::to_string(free) + " entries free for VLANs of the user") +
           "\n";
}

// The bits of a netmask; the mask where it is none of a prefix.
std::string prefix_of(const std::string &mask)
{
    unsigned bits = 0;
    bool ended = false;
    for (const std::string &part : parts(mask, ".")) {
        const auto byte = static_cast<unsigned>(std::atoi(part.c_str()));
        for (int bit = 7; bit >= 0; --bit) {
            const bool set = (byte >> bit & 1) != 0;
            if (set && ended) {
                return mask;
            }
            ended = ended || !set;
            bits += set ? 1 : 0;
        }
    }
    return std::to_string(bits);
}

std::string more_of(const std::string &name)
{
    std::vector<std::string> more;
    for (const auto &[other, device] : world.system.devices) {
        if (device.bridge == name) {
            more.push_back(other);
        }
    }
    for (const auto &[key, gateway] : world.system.gateways) {
        if (key.second == name) {
            more.push_back("default via " + gateway + " (table " + std::to_string(key.first) + ")");
        }
    }
    std::string out;
    for (const std::string &one : more) {
        out += (out.empty() ? "" : ", ") + one;
    }
    return out;
}

std::string interfaces(bool colours)
{
    std::string out = painted(colours, Style::head,
                              "  " + left("interface", 16) + " " + left("state", 6) + " " +
                                  left("address", 19) + " " + left("MAC", 18) + " members / default route") +
                      "\n";
    for (const auto &[name, device] : world.system.devices) {
        if (device.kind.empty()) {
            continue;
        }
        const std::string address = device.address.empty() ? "-"
                                    : device.mask.empty()  ? device.address
                                                           : device.address + "/" + prefix_of(device.mask);
        const std::string line =
            "  " + left(name, 16) + " " +
            painted(colours, device.up ? Style::up : Style::down, left(device.up ? "up" : "down", 6)) + " " +
            left(address, 19) + " " + left(or_else(device.mac, "-"), 18) + " " + more_of(name);
        out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return out;
}

// The facts of some kinds, a line each; none where there are none.
std::string list(bool colours, const char *title, std::initializer_list<const char *> kinds)
{
    std::string out;
    const Facts all = facts(world.system);
    for (const char *kind : kinds) {
        for (const std::string &line : parts(lines_of(all, kind), "\n")) {
            out += line.empty() ? "" : "  " + without_password(line) + "\n";
        }
    }
    if (out.empty()) {
        return out;
    }
    return "\n" + painted(colours, Style::head, std::string{"  "} + title) + "\n" + out;
}

} // namespace

std::string painted(bool colours, Style style, const std::string &text)
{
    static const std::string starts[] = {"\033[32m", "\033[31m", "\033[1m", "\033[2m"};
    return colours ? starts[static_cast<int>(style)] + text + "\033[0m" : text;
}

std::string picture_of_world(const Inputs &inputs, bool colours)
{
    return ports(inputs, colours) + "\n" + vlans(colours) + "\n" + interfaces(colours) +
           list(colours, "routes and rules", {"route ", "gateway ", "policy ", "rule "}) +
           list(colours, "clients", {"process "}) + list(colours, "files", {"wan ", "secret "});
}

} // namespace seam::plan
