// The router drawn for a person. Below 120 columns MACs and rates of interfaces are left out; lines are cut,
// never wrapped.

#include "show.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstring>

namespace ctl {

namespace {

constexpr unsigned wide = 120;
constexpr int box = 13;
constexpr int64_t first_cpu_port = 5;

void rate(char (&out)[16], json_object *of, const char *key, const char *space = " ")
{
    json_object *value = get(of, key);
    if (value == nullptr) {
        snprintf(out, sizeof(out), "-");
        return;
    }
    constexpr const char *units[] = {"bit/s", "kbit/s", "Mbit/s", "Gbit/s"};
    double bits = static_cast<double>(json_object_get_int64(value));
    size_t unit = 0;
    while (bits >= 1000 && unit < 3) {
        bits /= 1000;
        ++unit;
    }
    snprintf(out, sizeof(out), bits >= 10 || bits == 0 ? "%.0f%s%s" : "%.1f%s%s", bits, space, units[unit]);
}

// A text of bounded length under construction.
struct line {
    char text[400] = "";
    size_t length = 0;

    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...)
    {
        va_list args;
        va_start(args, format);
        const int more = vsnprintf(text + length, sizeof(text) - length, format, args);
        va_end(args);
        length += more > 0 ? static_cast<size_t>(more) : 0;
        length = length < sizeof(text) ? length : sizeof(text) - 1;
    }
};

void add_words(line &to, json_object *elements, const char *separator)
{
    const char *before = "";
    for (json_object *element : items(elements)) {
        to.add("%s%s", before, json_object_get_string(element));
        before = separator;
    }
}

// What stands in the box of a port, line by line.
struct port_lines {
    line rows[6];
    bool link;
};

void describe_port(json_object *port, port_lines &out)
{
    out.link = get_flag(port, "link");
    out.rows[0].add("port %s", shown(port, "port"));
    add_words(out.rows[1], get(port, "serves"), "/");
    if (out.link) {
        out.rows[2].add("%s %s", shown(port, "speed"), get_flag(port, "full_duplex") ? "full" : "half");
    } else {
        out.rows[2].add("no link");
    }
    out.rows[3].add("PVID %s", shown(port, "pvid"));
    char text[16];
    // Without a space, which the box has not got.
    rate(text, port, "rx_bits_per_s", "");
    out.rows[4].add("in %s", text);
    rate(text, port, "tx_bits_per_s", "");
    out.rows[5].add("out %s", text);
}

void draw_edge(size_t count, const char *left, const char *right)
{
    for (size_t i = 0; i < count; ++i) {
        printf("%s%s", i > 0 ? " " : "", left);
        for (int column = 0; column < box; ++column) {
            fputs("─", stdout);
        }
        fputs(right, stdout);
    }
    puts("");
}

void draw_boxes(const screen &on, const port_lines *ports, size_t count)
{
    draw_edge(count, "┌", "┐");
    for (size_t row = 0; row < std::size(ports->rows); ++row) {
        for (size_t i = 0; i < count; ++i) {
            const line &of = ports[i].rows[row];
            const int length = static_cast<int>(of.length < box ? of.length : box);
            const int before = (box - length) / 2;
            const style how = row == 0   ? style::head
                              : row == 2 ? (ports[i].link ? style::good : style::bad)
                              : row > 3  ? style::dim
                                         : style::plain;
            printf("%s│%*s%s%.*s%s%*s│", i > 0 ? " " : "", before, "", on.paint(how), length, of.text,
                   on.end(), box - length - before, "");
        }
        puts("");
    }
    draw_edge(count, "└", "┘");
}

void show_ports(const screen &on, json_object *facts)
{
    constexpr size_t most = 8;
    port_lines ports[most] = {};
    size_t count = 0;
    for (json_object *port : items(get(facts, "ports"))) {
        if (count < most) {
            describe_port(port, ports[count++]);
        }
    }
    if (on.is_terminal() && count > 0 && on.columns() >= count * (box + 3) - 1) {
        draw_boxes(on, ports, count);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        printf("%-7s %-14s %s%-9s%s %-10s %-16s %s\n", ports[i].rows[0].text, ports[i].rows[1].text,
               on.paint(ports[i].link ? style::good : style::bad), ports[i].rows[2].text, on.end(),
               ports[i].rows[3].text, ports[i].rows[4].text, ports[i].rows[5].text);
    }
}

void show_vlans(const screen &on, json_object *facts)
{
    printf("\n%sentry   VID  members            leave untagged%s\n", on.paint(style::head), on.end());
    for (json_object *entry : items(get(facts, "vlans"))) {
        line members;
        line bare;
        for (json_object *member : items(get(entry, "members"))) {
            const int64_t port = json_object_get_int64(member);
            const char *number = json_object_get_string(member);
            members.add("%s%s", members.length > 0 ? " " : "", port >= first_cpu_port ? "CPU" : number);
            bool untagged = false;
            for (json_object *other : items(get(entry, "untag"))) {
                untagged = untagged || json_object_get_int64(other) == port;
            }
            if (untagged && get_flag(facts, "untagging") && port < first_cpu_port) {
                bare.add("%s%s", bare.length > 0 ? " " : "", number);
            }
        }
        if (members.length > 0) {
            printf("%5s  %4s  %-17s  %s\n", shown(entry, "entry"), shown(entry, "vid"), members.text,
                   bare.length > 0 ? bare.text : "-");
        }
    }
    printf("%s%s entries free for VLANs of interfaces%s\n", on.paint(style::dim),
           shown(facts, "entries_free"), on.end());
}

// "2 d 3 h", "5 min", "12 s".
void duration(char (&out)[24], int64_t seconds)
{
    if (seconds >= 86400) {
        snprintf(out, sizeof(out), "%d d %d h", static_cast<int>(seconds / 86400),
                 static_cast<int>(seconds / 3600 % 24));
    } else if (seconds >= 3600) {
        snprintf(out, sizeof(out), "%d h %d min", static_cast<int>(seconds / 3600),
                 static_cast<int>(seconds / 60 % 60));
    } else if (seconds >= 120) {
        snprintf(out, sizeof(out), "%d min", static_cast<int>(seconds / 60));
    } else {
        snprintf(out, sizeof(out), "%d s", static_cast<int>(seconds));
    }
}

// What belongs to an interface and has no column.
void describe_more(line &to, json_object *interface)
{
    add_words(to, get(interface, "members"), ", ");
    if (json_object *way = get(interface, "way_out")) {
        to.add("%svia %s", to.length > 0 ? ", " : "", shown(way, "gateway"));
        if (!get_flag(way, "rule")) {
            to.add(" (table %s, but no rule leads there)", shown(way, "table"));
        }
    }
    if (json_object *client = get(interface, "client")) {
        char age[24];
        duration(age, get_number(client, "uptime_s"));
        to.add("%sclient %s%s", to.length > 0 ? ", " : "",
               get_flag(client, "running") ? "runs for " : "has ended",
               get_flag(client, "running") ? age : "");
    }
}

void show_interface(const screen &on, json_object *interface)
{
    const bool up = is(interface, "state", "up");
    line behind;
    line address;
    add_words(address, get(interface, "addresses"), " ");
    behind.add("%-18s %-7s", address.length > 0 ? address.text : "-", shown(interface, "proto"));
    if (on.columns() >= wide) {
        char in[16];
        char out[16];
        rate(in, interface, "rx_bits_per_s");
        rate(out, interface, "tx_bits_per_s");
        behind.add(" %-17s %-10s %-10s", shown(interface, "mac"), in, out);
    }
    line more;
    describe_more(more, interface);
    // One line where it fits, else a second one.
    const size_t front = 9 + std::max(strlen(shown(interface, "name")), size_t{12});
    const bool fits = front + behind.length + 1 + more.length <= on.columns();
    printf("%-12s %s%-7s%s %s%s%s\n", shown(interface, "name"), on.paint(up ? style::good : style::bad),
           shown(interface, "state"), on.end(), behind.text, fits && more.length > 0 ? " " : "",
           fits ? more.text : "");
    if (!fits) {
        printf("%13s%.*s\n", "", static_cast<int>(on.columns() - 13), more.text);
    }
}

void show_interfaces(const screen &on, json_object *facts)
{
    printf("\n%s%-12s %-7s %-18s %-7s", on.paint(style::head), "interface", "state", "address", "proto");
    if (on.columns() >= wide) {
        printf(" %-17s %-10s %-10s", "MAC", "in", "out");
    }
    printf(" members, way out, client%s\n", on.end());
    for (json_object *interface : items(get(facts, "interfaces"))) {
        show_interface(on, interface);
    }
}

void show_static_routes(const screen &on, json_object *facts)
{
    if (count_of(get(facts, "static_routes")) == 0) {
        return;
    }
    printf("\n%s%-15s %-10s %-18s %-15s %6s%s\n", on.paint(style::head), "static route", "state",
           "destination", "gateway", "metric", on.end());
    for (json_object *route : items(get(facts, "static_routes"))) {
        const bool installed = is(route, "state", "installed");
        printf("%-15.15s %s%-10s%s %-18s %-15.15s %6s\n", shown(route, "name"),
               on.paint(installed ? style::good : style::bad), shown(route, "state"), on.end(),
               shown(route, "destination"), shown(route, "gateway"), shown(route, "metric"));
    }
}

} // namespace

void show_status(const screen &on, json_object *facts)
{
    show_ports(on, facts);
    if (get(facts, "vlans") != nullptr) {
        show_vlans(on, facts);
    }
    show_interfaces(on, facts);
    show_static_routes(on, facts);
    puts("");
    show_health(on, get(facts, "health"));
    for (json_object *sentence : items(get(facts, "unread"))) {
        printf("not read: ");
        on.paragraph(10, json_object_get_string(sentence));
    }
    for (json_object *problem : items(get(facts, "problems"))) {
        line of;
        // A sentence that begins with its subject needs no name in front.
        if (!begins(text_of(problem, "sentence"), text_of(problem, "subject"))) {
            of.add("%s: ", shown(problem, "subject"));
        }
        of.add("%s", shown(problem, "sentence"));
        printf("%s!%s ", on.paint(style::bad), on.end());
        on.paragraph(2, of.text);
    }
}

} // namespace ctl
