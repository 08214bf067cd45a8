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
    if (get(facts, "unread") == nullptr) {
        put(facts, "unread", list());
    }
    json_object_array_add(get(facts, "unread"), text(line));
}

json_object *find(json_object *elements, const char *key, std::string_view value)
{
    json_object *found = nullptr;
    each(elements, [&](json_object *element) {
        if (found == nullptr && get_text(element, key) == value) {
            found = element;
        }
    });
    return found;
}

json_object *find(json_object *elements, const char *key, int64_t value)
{
    json_object *found = nullptr;
    each(elements, [&](json_object *element) {
        if (found == nullptr && get(element, key) != nullptr && get_number(element, key) == value) {
            found = element;
        }
    });
    return found;
}

bool holds(json_object *numbers, int64_t value)
{
    bool found = false;
    each(numbers, [&](json_object *element) { found = found || json_object_get_int64(element) == value; });
    return found;
}

bool is_lan(std::string_view name)
{
    return name.starts_with("lan");
}

bool is_wan(std::string_view name)
{
    return name.starts_with("wan");
}

int64_t number_of(std::string_view name)
{
    char digits[12] = "";
    for (size_t i = 3; i < name.size() && i < 3 + sizeof(digits) - 1; ++i) {
        digits[i - 3] = name[i];
    }
    return (is_lan(name) || is_wan(name)) && digits[0] >= '0' && digits[0] <= '9' ? atoll(digits) : 0;
}

int64_t port_of(json_object *facts, std::string_view name)
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
