#include "show.h"

#include <cinttypes>

namespace ctl {

namespace {

constexpr int64_t cpu_ports[] = {5, 6};
constexpr int64_t port_count = 7;

bool holds(json_object *ports, int64_t port)
{
    bool found = false;
    for (json_object *element : items(ports)) {
        found = found || json_object_get_int64(element) == port;
    }
    return found;
}

void show_port(const screen &on, json_object *port)
{
    const bool link = get_flag(port, "link");
    char text[40] = "down";
    if (link) {
        snprintf(text, sizeof(text), "%" PRId64 " Mbit/s %s", get_number(port, "speed"),
                 get_flag(port, "full_duplex") ? "full" : "half");
    }
    printf("%4" PRId64 "  %s%-16s%s  %" PRId64 "\n", get_number(port, "port"),
           on.paint(link ? style::good : style::bad), text, on.end(), get_number(port, "pvid"));
}

} // namespace

void show_switch(const screen &on, json_object *facts)
{
    printf("port  link              default VLAN\n");
    for (json_object *port : items(get(facts, "ports"))) {
        show_port(on, port);
    }
    for (const int64_t port : cpu_ports) {
        printf("%4" PRId64 "  %-16s  -\n", port, "CPU side");
    }
    printf("\nentry  VLAN  ports 0 1 2 3 4 5 6\n");
    const bool untagging = get_flag(facts, "untagging");
    for (json_object *entry : items(get(facts, "vlans"))) {
        printf("%5" PRId64 "  %4" PRId64 "       ", get_number(entry, "entry"), get_number(entry, "vid"));
        for (int64_t port = 0; port < port_count; ++port) {
            const bool bare = untagging && holds(get(entry, "untag"), port);
            printf(" %c", !holds(get(entry, "members"), port) ? '.' : bare ? 'u' : 't');
        }
        printf("\n");
    }
    if (count_of(get(facts, "vlans")) == 0) {
        printf("  (no entry in use)\n");
    }
    printf("untagging is %s\n", untagging ? "on" : "off");
}

} // namespace ctl
