// OpenMetrics text as Prometheus reads it: each family once, with its help, its type and its samples.

#include "show.h"

#include <cinttypes>
#include <cstring>

namespace ctl {

namespace {

// Writes a family's head, and a sample for each element of a list that has the member.
struct family {
    const char *name;
    const char *type;
    const char *help;
    const char *list;
    const char *label;  // name of the label
    const char *key;    // member that it is taken from
    const char *member; // the value
    int64_t divisor = 1;
};

constexpr family families[] = {
    {"ivarode_interface_receive_bytes_total", "counter", "Bytes received on an interface.", "interfaces",
     "interface", "name", "rx_bytes"},
    {"ivarode_interface_transmit_bytes_total", "counter", "Bytes sent on an interface.", "interfaces",
     "interface", "name", "tx_bytes"},
    {"ivarode_interface_receive_bytes_per_second", "gauge", "Rate of reception over half a second.",
     "interfaces", "interface", "name", "rx_bits_per_s", 8},
    {"ivarode_interface_transmit_bytes_per_second", "gauge", "Rate of sending over half a second.",
     "interfaces", "interface", "name", "tx_bits_per_s", 8},
    {"ivarode_device_receive_bytes_total", "counter", "Bytes received on a device of the kernel.", "devices",
     "device", "name", "rx_bytes"},
    {"ivarode_device_transmit_bytes_total", "counter", "Bytes sent on a device of the kernel.", "devices",
     "device", "name", "tx_bytes"},
    {"ivarode_device_receive_packets_total", "counter", "Packets received on a device of the kernel.",
     "devices", "device", "name", "rx_packets"},
    {"ivarode_device_transmit_packets_total", "counter", "Packets sent on a device of the kernel.", "devices",
     "device", "name", "tx_packets"},
    {"ivarode_device_receive_errors_total", "counter", "Errors on reception, of a device of the kernel.",
     "devices", "device", "name", "rx_errors"},
    {"ivarode_device_transmit_errors_total", "counter", "Errors on sending, of a device of the kernel.",
     "devices", "device", "name", "tx_errors"},
    {"ivarode_port_link", "gauge", "1 where a front port has link.", "ports", "port", "port", "link"},
    {"ivarode_port_speed_mbit", "gauge", "Speed of a front port in Mbit/s, 0 without link.", "ports", "port",
     "port", "speed"},
    {"ivarode_port_full_duplex", "gauge", "1 where a front port works in full duplex.", "ports", "port",
     "port", "full_duplex"},
    {"ivarode_client_running", "gauge", "1 while the DHCP or PPPoE client of an interface runs.", "clients",
     "interface", "name", "running"},
    {"ivarode_client_start_seconds", "gauge",
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

void head(const char *name, const char *type, const char *help)
{
    printf("# HELP %s %s\n# TYPE %s %s\n", name, help, name, type);
}

void show_family(json_object *facts, const family &of)
{
    head(of.name, of.type, of.help);
    for (json_object *element : items(get(facts, of.list))) {
        if (json_object *value = get(element, of.member)) {
            printf("%s{%s=\"", of.name, of.label);
            print_label(shown(element, of.key));
            printf("\"} %" PRId64 "\n", number_in(value) / of.divisor);
        }
    }
}

void show_one(const char *name, const char *type, const char *help, json_object *facts, const char *key)
{
    head(name, type, help);
    if (json_object *value = get(facts, key)) {
        printf("%s %" PRId64 "\n", name, number_in(value));
    }
}

int64_t count_with(json_object *elements, const char *key, const char *value)
{
    int64_t count = 0;
    for (json_object *element : items(elements)) {
        count += is(element, key, value) ? 1 : 0;
    }
    return count;
}

int64_t count_enabled(json_object *routes)
{
    int64_t count = 0;
    for (json_object *route : items(routes)) {
        count += get_flag(route, "enabled") ? 1 : 0;
    }
    return count;
}

void show_states(json_object *facts)
{
    constexpr const char *states[] = {"up", "starting", "hung", "down", "unreachable"};
    head("ivarode_state", "gauge", "1 for the state that the daemon is in.");
    for (const char *state : states) {
        printf("ivarode_state{state=\"%s\"} %d\n", state, is(facts, "state", state) ? 1 : 0);
    }
}

} // namespace

void show_metrics(const screen & /*on*/, json_object *facts)
{
    json_object *health = get(facts, "health");
    head("ivarode_up", "gauge", "1 where the daemon answers on the bus.");
    printf("ivarode_up %d\n", is(health, "state", "up") ? 1 : 0);
    show_states(health);
    show_one("ivarode_uptime_seconds", "gauge", "Seconds since the daemon's start.", get(health, "daemon"),
             "uptime_s");
    show_one("ivarode_samples_total", "counter", "Samples of the traffic counters that the daemon has taken.",
             facts, "samples");
    for (const family &of : families) {
        show_family(facts, of);
    }
    show_one("ivarode_vlan_entries_used", "gauge",
             "Entries of the switch's table in use for VLANs of interfaces.", facts, "entries_used");
    show_one("ivarode_vlan_entries_free", "gauge",
             "Entries of the switch's table free for VLANs of interfaces.", facts, "entries_free");
    json_object *routes = get(facts, "static_routes");
    head("ivarode_static_routes_wanted", "gauge", "Static routes that are enabled in the configuration.");
    printf("ivarode_static_routes_wanted %" PRId64 "\n", count_enabled(routes));
    head("ivarode_static_routes_installed", "gauge",
         "Static routes of the configuration that the kernel has.");
    printf("ivarode_static_routes_installed %" PRId64 "\n", count_with(routes, "state", "installed"));
    puts("# EOF");
}

} // namespace ctl
