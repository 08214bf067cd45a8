// From the processor's port to the interface: devices of the kernel.

#include "explain/explain.h"

#include <cstring>

namespace ctl {

namespace {

constexpr const char *restart = "/etc/init.d/ivarode restart lays devices and bridges again";

// What the remedy is for something that somebody else has changed in a running system.
finding with_config(finding of, const subject &about)
{
    return with_remedy(
        of, "ubus call ivarode.intf config for %s under its own name, or /etc/init.d/ivarode restart",
        about.name());
}

// Of an interface whose address comes from somebody else.
finding without_address(const subject &about)
{
    const bool dials = is(about.own, "proto", "pppoe");
    json_object *line = get(get(about.own, "client"), "reason");
    const meaning *of = meaning_of(line != nullptr ? json_object_get_string(line)
                                   : dials         ? "started by "
                                                   : " has no lease");
    return bad(of->remedy, "%s has no %s: %s%s%s", about.name(), dials ? "PPP link" : "address", of->sentence,
               line != nullptr ? "; the log: " : "", line != nullptr ? json_object_get_string(line) : "");
}

bool is_unread(const subject &about)
{
    return get(about.facts, "devices") == nullptr;
}

} // namespace

finding look_cpu_device(const subject &about)
{
    const char *name = begins(text_of(about.own, "member"), "eth1") ? "eth1" : "eth0";
    json_object *device = about.device(name);
    if (is_unread(about)) {
        return unsure("the devices could not be read");
    }
    if (device == nullptr) {
        return bad("load the Ethernet driver", "%s, the processor's port to the switch, is not there", name);
    }
    if (!get_flag(device, "up")) {
        return with_remedy(bad("", "%s, the processor's port to the switch, is down", name),
                           "ip link set %s up", name);
    }
    return good("%s is up", name);
}

finding look_vlan_device(const subject &about)
{
    const char *name = shown(about.own, "member");
    json_object *device = about.device(name);
    if (is_unread(about)) {
        return skipped();
    }
    if (device == nullptr) {
        return bad(restart, "VLAN device %s is missing", name);
    }
    if (!get_flag(device, "up")) {
        return with_remedy(bad("", "VLAN device %s is down", name), "ip link set %s up", name);
    }
    return good("VLAN device %s is up", name);
}

finding look_bridge(const subject &about)
{
    const char *name = shown(about.own, "bridge");
    json_object *device = about.device(name);
    if (is_unread(about)) {
        return skipped();
    }
    if (device == nullptr) {
        return bad(restart, "bridge %s is missing", name);
    }
    if (!is(device, "kind", "bridge")) {
        return bad("remove that device, then /etc/init.d/ivarode restart",
                   "%s is a device of another kind, no bridge", name);
    }
    return good("bridge %s is there", name);
}

finding look_member(const subject &about)
{
    const char *name = shown(about.own, "member");
    json_object *device = about.device(name);
    if (device == nullptr || about.device(text_of(about.own, "bridge")) == nullptr) {
        return skipped();
    }
    if (get(device, "bridge") == nullptr) {
        return with_config(bad("", "%s has no member: %s is in no bridge", shown(about.own, "bridge"), name),
                           about);
    }
    if (!is_same(device, "bridge", about.own, "bridge")) {
        return with_config(bad("", "%s has no member: %s is in bridge %s", shown(about.own, "bridge"), name,
                               shown(device, "bridge")),
                           about);
    }
    return good("%s is its member", name);
}

finding look_enabled(const subject &about)
{
    if (get_flag(about.own, "configured") && !get_flag(about.own, "enabled")) {
        return bad("set option enable to 1 in its section, then restart; or ubus call ivarode.intf enable",
                   "%s is disabled in its section", about.name());
    }
    return skipped();
}

finding look_up(const subject &about)
{
    const char *name = shown(about.own, "bridge");
    json_object *device = about.device(name);
    if (device == nullptr) {
        return skipped();
    }
    if (!get_flag(device, "up")) {
        return with_remedy(bad("", "%s is down: disabled over the bus, or set down by hand", name),
                           "ubus call ivarode.intf enable '{\"intf\":[\"%s\"],\"enable\":1}'", about.name());
    }
    return good("%s is up", name);
}

finding look_address(const subject &about)
{
    json_object *addresses = get(about.own, "addresses");
    if (is_unread(about)) {
        return skipped();
    }
    if (addresses != nullptr && count_of(addresses) > 0) {
        return good("it has %s", json_object_get_string(json_object_array_get_idx(addresses, 0)));
    }
    json_object *section = about.section();
    const bool is_static = is(about.own, "proto", "static");
    if (is_static && (section == nullptr || strcmp(text_of(section, "ipaddr", "0.0.0.0"), "0.0.0.0") == 0)) {
        return good("it is to have no address");
    }
    if (is_static) {
        return with_config(
            bad("", "%s has no address; its section says %s", about.name(), shown(section, "ipaddr")), about);
    }
    return without_address(about);
}

} // namespace ctl
