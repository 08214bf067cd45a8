// The three packages that the daemon reads at its start. Passwords are left out.

#include "facts/router.h"
#include "platform/config.h"

#include <cstring>
#include <uci.h>

namespace ctl {

namespace {

// Package, the type of its sections.
constexpr const char *packages[][2] = {
    {"lan_intf", "interface"}, {"wan_intf", "interface"}, {"route_config", "route"}};

int add_section(uci_context * /*context*/, uci_section *section, void *argument)
{
    json_object *made = append_table(static_cast<json_object *>(argument));
    put(made, "name", section->e.name != nullptr ? section->e.name : "");
    uci_element *element = nullptr;
    uci_foreach_element(&section->options, element)
    {
        const uci_option *option = uci_to_option(element);
        // A list is no text to the daemon.
        if (option->type == UCI_TYPE_STRING && strcmp(element->name, "password") != 0) {
            put(made, element->name, option->v.string);
        }
    }
    return 0;
}

} // namespace

void add_configuration(json_object *facts)
{
    json_object *made = put_table(facts, "configuration");
    for (const auto &[package, type] : packages) {
        if (ucilib_foreach_section(package, type, add_section, put_list(made, package)) != 0) {
            note_unread(facts, "package %s cannot be read: %s", package, strerror(errno));
            json_object_object_del(made, package);
        }
    }
}

} // namespace ctl
