// What the configuration says of an interface.

#include "check/options.h"
#include "explain/explain.h"

#include <cstring>

namespace ctl {

namespace {

constexpr size_t longest_device = 15; // of the kernel
constexpr size_t longest_dialled = 12;
constexpr const char *mend = "mend the section in /etc/config, then /etc/init.d/ivarode restart";

} // namespace

finding look_section(const subject &about)
{
    const char *package = about.is_uplink() ? "wan_intf" : "lan_intf";
    if (get(get(about.facts, "configuration"), package) == nullptr) {
        return bad("correct the file that standard error names; without it the daemon ends at its start",
                   "package %s cannot be read", package);
    }
    if (about.section() == nullptr) {
        return good("%s is in no section: it was made over the bus, and is gone after a restart",
                    about.name());
    }
    return good("section %s of package %s", about.name(), package);
}

finding look_options(const subject &about)
{
    json_object *section = about.section();
    if (section == nullptr) {
        return skipped();
    }
    const size_t longest = is(about.own, "proto", "pppoe") ? longest_dialled : longest_device;
    if (strlen(about.name()) > longest) {
        return bad(mend, "the name %s has more than %zu characters: the kernel refuses its device",
                   about.name(), longest);
    }
    const beside others = {shown(section, "proto", nullptr), shown(section, "ipaddr", nullptr),
                           shown(section, "vlanid1", nullptr)};
    json_object_object_foreach(section, option, value)
    {
        const char *text = json_object_get_string(value);
        if (ends_start(option, text, others, about.is_uplink())) {
            return bad(mend, "section %s: option %s is \"%.40s\", and the daemon's start ends there",
                       about.name(), option, text);
        }
    }
    return good("its options can be used");
}

finding look_number_of_board(const subject &about)
{
    if (get(about.facts, "board") == nullptr) {
        return bad("correct /etc/board.json; standard error names the key", "the board file cannot be used");
    }
    if (about.port() < 0) {
        return bad(about.section() != nullptr
                       ? "take the section out, or name it after a LAN or WAN that the board has"
                       : "/etc/init.d/ivarode restart, before somebody calls statist, which would not end",
                   "%s: the board has no %.3s %d%s", about.name(), about.name(),
                   static_cast<int>(number_of(about.name())),
                   about.section() != nullptr ? ", and the daemon's start ends there" : "");
    }
    return good("%.3s %d is port %d", about.name(), static_cast<int>(number_of(about.name())),
                static_cast<int>(about.port()));
}

} // namespace ctl
