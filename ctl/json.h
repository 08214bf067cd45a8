// Facts, as JSON values.
//
// json   Owns a value. The functions below make values and put them into a table, which owns them from then
// on. Text from elsewhere may hold any bytes; those that are no printable ASCII become "?", so that what is
// printed is always valid and draws itself as wide as it is long.
//
// Memory is not looked after: a tool that has none left ends.
#pragma once

#include "libsys/internal.h"

#include <cstdint>
#include <json-c/json.h>
#include <string_view>

namespace ctl {

using json = libsys::owned<json_object, json_object_put>;

inline json table()
{
    return json{json_object_new_object()};
}
inline json list()
{
    return json{json_object_new_array()};
}

json_object *text(std::string_view bytes);

void put(json_object *into, const char *key, json value);
void put(json_object *into, const char *key, std::string_view value);
void put(json_object *into, const char *key, const char *value);
void put_number(json_object *into, const char *key, int64_t value);
void put_flag(json_object *into, const char *key, bool value);
void append(json_object *to, json value);
void append(json_object *to, int64_t value);

// A value of a table, or what stands for one that is not there.
json_object *get(json_object *from, const char *key);
std::string_view get_text(json_object *from, const char *key, std::string_view absent = "");
int64_t get_number(json_object *from, const char *key, int64_t absent = 0);
bool get_flag(json_object *from, const char *key);
// For printf.
const char *shown(json_object *from, const char *key, const char *absent = "-");

// Calls visit(json_object *) for each element of a list; none where there is no list.
template <typename Visit> void each(json_object *elements, Visit visit)
{
    if (!json_object_is_type(elements, json_type_array)) {
        return;
    }
    for (size_t i = 0; i < json_object_array_length(elements); ++i) {
        visit(json_object_array_get_idx(elements, i));
    }
}

} // namespace ctl
