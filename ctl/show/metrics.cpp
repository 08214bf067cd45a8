// Text for a monitoring system: each family once, with its type, its help and its samples, whose names end in
// _total where the family is a counter. There are two dialects: to Prometheus's own text, _total is a part of
// the family's name; to OpenMetrics it is not, and families have units.

#include "show.h"

#include <cinttypes>
#include <cstring>

namespace ctl {

namespace {

struct family {
    const char *name;
    const char *type;
    const char *help;
};

constexpr const char *counter = "counter";
constexpr const char *gauge = "gauge";

// A family with a sample for each element of a list that has the member.
constexpr struct {
    const char *name;
    const char *type;
    const char *help;
    const char *list;
    const char *label;  // name of the label
    const char *key;    // member that it is taken from
    const char *member; // the value
    int shift = 0;      // to the right: bits to bytes
} families[] = {
    {"interface_receive_bytes", counter, "Bytes received on an interface.", "interfaces", "interface", "name",
     "rx_bytes"},
    {"interface_transmit_bytes", counter, "Bytes sent on an interface.", "interfaces", "interface", "name",
     "tx_bytes"},
    {"interface_receive_bytes_per_second", gauge, "Rate of reception over half a second.", "interfaces",
     "interface", "name", "rx_bits_per_s", 3},
    {"interface_transmit_bytes_per_second", gauge, "Rate of sending over half a second.", "interfaces",
     "interface", "name", "tx_bits_per_s", 3},
    {"device_receive_bytes", counter, "Bytes received on a device of the kernel.", "devices", "device",
     "name", "rx_bytes"},
    {"device_transmit_bytes", counter, "Bytes sent on a device of the kernel.", "devices", "device", "name",
     "tx_bytes"},
    {"device_receive_packets", counter, "Packets received on a device of the kernel.", "devices", "device",
     "name", "rx_packets"},
    {"device_transmit_packets", counter, "Packets sent on a device of the kernel.", "devices", "device",
     "name", "tx_packets"},
    {"device_receive_errors", counter, "Errors on reception, of a device of the kernel.", "devices", "device",
     "name", "rx_errors"},
    {"device_transmit_errors", counter, "Errors on sending, of a device of the kernel.", "devices", "device",
     "name", "tx_errors"},
    {"port_link", gauge, "1 where a front port has link.", "ports", "port", "port", "link"},
    {"port_speed_mbit", gauge, "Speed of a front port in Mbit/s, 0 without link.", "ports", "port", "port",
     "speed"},
    {"port_full_duplex", gauge, "1 where a front port works in full duplex.", "ports", "port", "port",
     "full_duplex"},
    {"client_running", gauge, "1 while the DHCP or PPPoE client of an interface runs.", "clients",
     "interface", "name", "running"},
    {"client_start_seconds", gauge,
     "When the client was started, in seconds after the machine; a change is a restart.", "clients",
     "interface", "name", "started_s"},
};

int64_t number_in(json_object *value)
{
    return json_object_is_type(value, json_type_boolean) ? json_object_get_boolean(value)
                                                         : json_object_get_int64(value);
}

// The three characters that mean something in a label's text; names hold no line ends, they are "?" already.
void print_label(const char *text)
{
    for (; *text != '\0'; ++text) {
        if (*text == '"' || *text == '\\') {
            fputc('\\', stdout);
        }
        fputc(*text, stdout);
    }
}

const char *unit_of(const char *name)
{
    const char *end = strrchr(name, '_');
    return end != nullptr && (strcmp(end, "_bytes") == 0 || strcmp(end, "_seconds") == 0) ? end + 1 : nullptr;
}

const char *suffix_of(const family &of)
{
    return of.type == counter ? "_total" : "";
}

void head(const family &of, bool openmetrics)
{
    const char *suffix = openmetrics ? "" : suffix_of(of);
    printf("# TYPE ivarode_%s%s %s\n", of.name, suffix, of.type);
    if (const char *unit = openmetrics ? unit_of(of.name) : nullptr) {
        printf("# UNIT ivarode_%s %s\n", of.name, unit);
    }
    printf("# HELP ivarode_%s%s %s\n", of.name, suffix, of.help);
}

void print_name(const family &of)
{
    printf("ivarode_%s%s", of.name, suffix_of(of));
}

void show_one(const family &of, bool openmetrics, json_object *value)
{
    head(of, openmetrics);
    if (value != nullptr) {
        print_name(of);
        printf(" %" PRId64 "\n", number_in(value));
    }
}

void show_number(const family &of, bool openmetrics, int64_t value)
{
    const json number{json_object_new_int64(value)};
    show_one(of, openmetrics, number.get());
}

int64_t count_with(json_object *elements, bool (*counts)(json_object *))
{
    int64_t count = 0;
    for (json_object *element : items(elements)) {
        count += counts(element) ? 1 : 0;
    }
    return count;
}

void show_states(json_object *facts, bool openmetrics)
{
    head({"state", gauge, "1 for the state that the daemon is in."}, openmetrics);
    for (const char *state : {"up", "starting", "hung", "down", "unreachable"}) {
        printf("ivarode_state{state=\"%s\"} %d\n", state, is(facts, "state", state) ? 1 : 0);
    }
}

} // namespace

void show_metrics(const screen & /*on*/, json_object *facts)
{
    const bool openmetrics = is(facts, "format", "openmetrics");
    json_object *health = get(facts, "health");
    show_number({"up", gauge, "1 where the daemon answers on the bus."}, openmetrics,
                is(health, "state", "up"));
    show_states(health, openmetrics);
    show_one({"uptime_seconds", gauge, "Seconds since the daemon's start."}, openmetrics,
             get(get(health, "daemon"), "uptime_s"));
    show_one({"samples", counter, "Samples of the traffic counters that the daemon has taken."}, openmetrics,
             get(facts, "samples"));
    for (const auto &[name, type, help, elements, label, key, member, shift] : families) {
        const family of{name, type, help};
        head(of, openmetrics);
        for (json_object *element : items(get(facts, elements))) {
            if (json_object *value = get(element, member)) {
                print_name(of);
                printf("{%s=\"", label);
                print_label(shown(element, key));
                printf("\"} %" PRId64 "\n", number_in(value) >> shift);
            }
        }
    }
    show_one({"vlan_entries_used", gauge, "Entries of the switch's table in use for VLANs of interfaces."},
             openmetrics, get(facts, "entries_used"));
    show_one({"vlan_entries_free", gauge, "Entries of the switch's table free for VLANs of interfaces."},
             openmetrics, get(facts, "entries_free"));
    json_object *routes = get(facts, "static_routes");
    show_number({"static_routes_wanted", gauge, "Static routes that are enabled in the configuration."},
                openmetrics,
                count_with(routes, [](json_object *route) { return get_flag(route, "enabled"); }));
    show_number({"static_routes_installed", gauge, "Static routes of the configuration that the kernel has."},
                openmetrics,
                count_with(routes, [](json_object *route) { return is(route, "state", "installed"); }));
    puts("# EOF");
}

} // namespace ctl
