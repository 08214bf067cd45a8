// Everything that can be read of the router, part by part. Each gatherer puts one or more fields into the
// table; what it cannot read it leaves out, with a sentence in the list "unread".
#pragma once

#include "json.h"

namespace ctl {

void add_board(json_object *facts);         // "board"
void add_configuration(json_object *facts); // "configuration"
void add_kernel(json_object *facts);        // "devices", "routes", "rules", "forwarding"
void add_chains(json_object *facts);        // "chains"
void add_services(json_object *facts);      // "health", "clients", "sibling", "supervisor"
void add_last_words(json_object *facts);    // "last_words", "last_line" and "reason" of the clients
void add_rows(json_object *facts);          // "rows", "resolvers"
void add_accounts(json_object *facts);      // "ppp_users"

// "interfaces", "ports" with what they serve, "static_routes": from the facts above and those of the switch.
void derive_ports(json_object *facts);
void derive_interfaces(json_object *facts);
void derive_static_routes(json_object *facts);

// Rates of interfaces, devices and ports, from two readings half a second apart.
void add_rates(json_object *facts);

// All of it, but for the rates.
void read_router(json_object *facts);

// What a line of the log says of an interface that has no address.
struct meaning {
    const char *words; // in the line
    uint8_t beats;     // it counts behind a line that keeps no more than this
    uint8_t keeps;
    const char *sentence;
    const char *remedy;
};
// Null where it says nothing; of " has no lease" and "started by " what is known without a log.
const meaning *meaning_of(const char *line);

// One sentence about what could not be read.
[[gnu::format(printf, 2, 3)]] void note_unread(json_object *facts, const char *format, ...);

// The element of a list whose member is that text or number; null when there is none.
json_object *find(json_object *elements, const char *key, const char *value);
json_object *find(json_object *elements, const char *key, int64_t value);
// Whether a list of numbers holds one.
bool holds(json_object *numbers, int64_t value);

// The number behind "lan" or "wan", as the daemon reads it; 0 for none.
int64_t number_of(const char *name);
bool is_lan(const char *name);
bool is_wan(const char *name);
// The front port of a LAN or WAN by name; -1 where the board has none.
int64_t port_of(json_object *facts, const char *name);
// The port of LAN 1, whose VLAN all LAN ports share that are not their own; -1 without a board.
int64_t lan1_port(json_object *facts);

constexpr int64_t first_port_vlan = 4090;
constexpr int64_t no_vlan = 65535;
constexpr int64_t route_table = 10000;
constexpr int64_t connected_table = 10001;
constexpr int64_t first_number = 10002;
constexpr int64_t last_number = 32765;
constexpr int64_t usual_number = 20001;

} // namespace ctl
