#include "switch.h"

#include <algorithm>

namespace model {

namespace {

constexpr unsigned vids = 4096;

std::optional<unsigned> find(const Switch &sw, auto matches)
{
    for (unsigned i = first_free_entry; i < table_size; i++) {
        if (matches(sw.table[i])) {
            return i;
        }
    }
    return std::nullopt;
}

} // namespace

void Switch::join_entry(unsigned index, unsigned vid, unsigned port)
{
    table[index].vid = vid;
    table[index].members.insert(port);
}

void Switch::leave_entry(unsigned index, unsigned vid, unsigned port)
{
    table[index].vid = vid;
    table[index].members.erase(port);
}

int Switch::join(unsigned vid, unsigned port)
{
    auto entry = find(*this, [&](const Vlan &vlan) { return vlan.vid == vid; });
    if (!entry) {
        entry = find(*this, [](const Vlan &vlan) { return vlan.members.empty(); });
    }
    if (!entry || vid >= vids) {
        return bad_argument;
    }
    join_entry(*entry, vid, port);
    return 0;
}

int Switch::leave(unsigned vid, unsigned port)
{
    const auto entry = find(*this, [&](const Vlan &vlan) { return vlan.vid == vid; });
    if (!entry) {
        return bad_argument;
    }
    std::set<unsigned> rest = table[*entry].members;
    rest.erase(port);
    // The first CPU port stays for as long as anybody else does.
    if (port != first_cpu_port || rest.empty()) {
        table[*entry] = {rest.empty() ? 0 : vid, rest};
    }
    return 0;
}

std::optional<unsigned> Switch::entry_of(unsigned port, unsigned tag) const
{
    if (tag == 0 && port >= front_ports) {
        return std::nullopt;
    }
    const unsigned vid = tag != 0 ? tag : pvid[port];
    for (unsigned i = 0; i < table_size; i++) {
        if (table[i].vid == vid && (vid != 0 || !table[i].members.empty())) {
            return table[i].members.contains(port) ? std::optional{i} : std::nullopt;
        }
    }
    return std::nullopt;
}

PortPairs Switch::joined() const
{
    std::set<unsigned> tags{0};
    for (const Vlan &vlan : table) {
        tags.insert(vlan.vid);
    }
    PortPairs out;
    for (unsigned port = 0; port < front_ports; port++) {
        for (const unsigned tag : tags) {
            const auto entry = entry_of(port, tag);
            for (const unsigned other : entry ? table[*entry].members : std::set<unsigned>{}) {
                if (other < front_ports && other != port) {
                    out.insert({std::min(port, other), std::max(port, other)});
                }
            }
        }
    }
    return out;
}

std::string Switch::picture() const
{
    std::string out;
    for (unsigned i = 0; i < table_size; i++) {
        if (table[i].vid != 0 || !table[i].members.empty()) {
            out += "entry " + std::to_string(i) + ": VLAN " + std::to_string(table[i].vid) + " of";
            for (const unsigned port : table[i].members) {
                out += " " + std::to_string(port);
            }
            out += "\n";
        }
    }
    for (unsigned port = 0; port < front_ports; port++) {
        out += "port " + std::to_string(port) + ": VLAN " + std::to_string(pvid[port]) + "\n";
    }
    return out + (port_vlans_untagged ? "port VLANs untagged\n" : "port VLANs tagged\n");
}

} // namespace model
