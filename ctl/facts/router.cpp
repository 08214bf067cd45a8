#include "facts/router.h"

#include "facts/health.h"
#include "facts/switch.h"

#include <cstdarg>
#include <cstdlib>

namespace ctl {

void note_unread(json_object *facts, const char *format, ...)
{
    char line[256];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    json_object *unread = get(facts, "unread");
    append(unread != nullptr ? unread : put_list(facts, "unread"), line);
}

json_object *find(json_object *elements, const char *key, const char *value)
{
    for (json_object *element : items(elements)) {
        if (is(element, key, value)) {
            return element;
        }
    }
    return nullptr;
}

json_object *find(json_object *elements, const char *key, int64_t value)
{
    for (json_object *element : items(elements)) {
        if (get(element, key) != nullptr && get_number(element, key) == value) {
            return element;
        }
    }
    return nullptr;
}

bool holds(json_object *numbers, int64_t value)
{
    for (json_object *element : items(numbers)) {
        if (json_object_get_int64(element) == value) {
            return true;
        }
    }
    return false;
}

bool is_lan(const char *name)
{
    return begins(name, "lan");
}

bool is_wan(const char *name)
{
    return begins(name, "wan");
}

int64_t number_of(const char *name)
{
    return (is_lan(name) || is_wan(name)) && name[3] >= '0' && name[3] <= '9' ? atoll(name + 3) : 0;
}

int64_t port_of(json_object *facts, const char *name)
{
    json_object *served = get(get(facts, "board"), is_lan(name) ? "lans" : "wans");
    json_object *found = is_lan(name) || is_wan(name) ? find(served, "number", number_of(name)) : nullptr;
    return get_number(found, "port", -1);
}

int64_t lan1_port(json_object *facts)
{
    return port_of(facts, "lan1");
}

void read_router(json_object *facts)
{
    if (!read_switch(facts)) {
        note_unread(facts, "the switch could not be read");
    }
    add_board(facts);
    add_configuration(facts);
    add_kernel(facts);
    add_chains(facts);
    add_services(facts);
    add_last_words(facts);
    add_rows(facts);
    add_accounts(facts);
    derive_ports(facts);
    derive_interfaces(facts);
    derive_static_routes(facts);
}

} // namespace ctl
