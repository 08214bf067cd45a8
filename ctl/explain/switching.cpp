// From the cable to the CPU: link, PVID and VLAN table of the ports.

#include "explain/explain.h"
#include "facts/switch.h"

namespace ctl {

namespace {

constexpr int64_t cpu_of_eth0 = 6;
constexpr int64_t cpu_of_eth1 = 5;
constexpr const char *lay_again = "/etc/init.d/ivarode restart programs the switch again";

json_object *port_numbered(const subject &about, int64_t number)
{
    return find(get(about.facts, "ports"), "port", number);
}

bool serves_lan(json_object *port)
{
    bool found = false;
    for (json_object *name : items(get(port, "serves"))) {
        found = found || begins(json_object_get_string(name), "LAN");
    }
    return found;
}

bool serves_anything(json_object *port)
{
    return get(port, "serves") != nullptr && count_of(get(port, "serves")) > 0;
}

// The VLAN that untagged frames of a port belong into: its own, or that of LAN 1.
int64_t vlan_of_port(const subject &about, json_object *port)
{
    return first_port_vlan + (get_flag(port, "own") ? get_number(port, "port") : lan1_port(about.facts));
}

// Calls visit(port) for the ports of a subject: one, or with LAN 1 all those that share its VLAN.
template <typename Visit> void each_port(const subject &about, Visit visit)
{
    json_object *own = port_numbered(about, about.port());
    if (own != nullptr) {
        visit(own);
    }
    const bool is_shared = about.kind == an_interface && about.port() == lan1_port(about.facts) &&
                           get(about.own, "vlanid1") == nullptr;
    if (is_shared) {
        for (json_object *port : items(get(about.facts, "ports"))) {
            if (port != own && serves_lan(port) && !get_flag(port, "own")) {
                visit(port);
            }
        }
    }
}

// The VLAN that a subject's frames have in the switch.
int64_t vlan_wanted(const subject &about, json_object *port)
{
    return about.kind == an_interface && get(about.own, "vlanid1") != nullptr
               ? get_number(about.own, "vlanid1")
               : vlan_of_port(about, port);
}

json_object *entry_of(const subject &about, int64_t vlan)
{
    return find(get(about.facts, "vlans"), "vid", vlan);
}

bool is_unread(const subject &about)
{
    return get(about.facts, "vlans") == nullptr || get(about.facts, "ports") == nullptr;
}

int digits(int64_t number)
{
    return static_cast<int>(number);
}

} // namespace

finding look_port_own(const subject &about)
{
    const bool on_vlan = get(about.own, "vlanid1") != nullptr;
    json_object *port = port_numbered(about, about.port());
    if (port == nullptr || get(about.facts, "devices") == nullptr) {
        return unsure("the switch or the kernel could not be read");
    }
    if (get_flag(port, "own")) {
        return good("port %d is set up as its own", digits(about.port()));
    }
    if (on_vlan && !about.is_uplink() && !get_flag(about.own, "configured")) {
        return good("port %d is one of LAN 1's, and carries a VLAN of its own beside", digits(about.port()));
    }
    const char *name = about.name();
    return with_remedy(
        bad("", "port %d is not set up as its own: %s", digits(about.port()),
            on_vlan ? "the interface does not follow its link" : "the interface has no device to stand on"),
        "ubus call ivarode.intf port_add '{\"name\":\"%.4s\"}' where it was made over the bus; else "
        "/etc/init.d/ivarode restart",
        name);
}

finding look_cable(const subject &about)
{
    if (is_unread(about)) {
        return unsure("the links of the ports could not be read");
    }
    bool any = false;
    char ports[40] = "";
    each_port(about, [&](json_object *port) {
        const size_t length = __builtin_strlen(ports);
        snprintf(ports + length, sizeof(ports) - length, "%s%s", length > 0 ? ", " : "", shown(port, "port"));
        any = any || get_flag(port, "link");
    });
    if (any) {
        return good("link on port %s", ports);
    }
    return bad("plug the cable in, or look at the other end", "no link on port %s", ports);
}

finding look_pvid(const subject &about)
{
    if (is_unread(about)) {
        return unsure("the PVIDs could not be read");
    }
    if (about.kind == a_port && !serves_anything(about.own)) {
        return good("the board file gives port %d no LAN or WAN", digits(about.port()));
    }
    finding wrong = skipped();
    each_port(about, [&](json_object *port) {
        const int64_t pvid = get_number(port, "pvid");
        const int64_t wanted = vlan_of_port(about, port);
        if (wrong != verdict::bad && entry_of(about, pvid) == nullptr) {
            wrong = bad(lay_again, "port %s: PVID %d is no VLAN of the table: frames are dropped",
                        shown(port, "port"), digits(pvid));
        } else if (wrong != verdict::bad && pvid != wanted) {
            wrong = bad(lay_again, "port %s: PVID %d instead of %d: its frames go into another VLAN",
                        shown(port, "port"), digits(pvid), digits(wanted));
        }
    });
    return wrong == verdict::bad ? wrong : good("the PVID is a VLAN of the table");
}

finding look_entry(const subject &about)
{
    if (is_unread(about) || (about.kind == a_port && !serves_anything(about.own))) {
        return skipped();
    }
    finding wrong = skipped();
    each_port(about, [&](json_object *port) {
        const int64_t vlan = vlan_wanted(about, port);
        json_object *entry = entry_of(about, vlan);
        if (wrong == verdict::bad) {
            return;
        }
        if (entry == nullptr && get_number(about.facts, "entries_free") == 0) {
            wrong =
                bad("remove another interface with a VLAN, then add this one again",
                    "VLAN %d is not in the table, and all eleven entries for VLANs of interfaces are in use",
                    digits(vlan));
        } else if (entry == nullptr) {
            wrong = bad(lay_again, "VLAN %d is not in the switch's table", digits(vlan));
        } else if (!holds(get(entry, "members"), get_number(port, "port"))) {
            wrong = bad(lay_again, "port %s is no member of VLAN %d in the switch: frames are dropped",
                        shown(port, "port"), digits(vlan));
        }
    });
    return wrong == verdict::bad ? wrong : good("the VLAN table has it as a member");
}

finding look_entry_cpu(const subject &about)
{
    json_object *port = port_numbered(about, about.port());
    if (is_unread(about) || port == nullptr || (about.kind == a_port && !serves_anything(about.own))) {
        return skipped();
    }
    const int64_t vlan = vlan_wanted(about, port);
    json_object *members = get(entry_of(about, vlan), "members");
    if (members == nullptr) {
        return skipped();
    }
    const bool two = get_number(get(about.facts, "board"), "cpu_ports") == 2;
    if (about.is_uplink() && two ? holds(members, cpu_of_eth1)
                                 : holds(members, cpu_of_eth0) || (two && holds(members, cpu_of_eth1))) {
        return good("VLAN %d leads to the processor", digits(vlan));
    }
    return bad(lay_again, "VLAN %d does not lead to the processor: the CPU port is no member of its entry",
               digits(vlan));
}

finding look_untagged(const subject &about)
{
    if (is_unread(about) || get(about.own, "vlanid1") != nullptr ||
        (about.kind == a_port && !serves_anything(about.own))) {
        return skipped();
    }
    if (!get_flag(about.facts, "untagging")) {
        return bad(lay_again, "untagging is off: frames leave every port with a tag");
    }
    finding wrong = skipped();
    each_port(about, [&](json_object *port) {
        json_object *entry = entry_of(about, vlan_of_port(about, port));
        if (wrong != verdict::bad && entry != nullptr &&
            !holds(get(entry, "untag"), get_number(port, "port"))) {
            wrong = bad(lay_again, "port %s: frames of VLAN %s leave it with a tag", shown(port, "port"),
                        shown(entry, "vid"));
        }
    });
    return wrong == verdict::bad ? wrong : good("frames leave the port without a tag");
}

} // namespace ctl
