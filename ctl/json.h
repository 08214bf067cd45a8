// Facts, as JSON values.
//
// json   Owns a value. The functions below make values inside of a table or list, which owns them. Text from
// elsewhere may hold any bytes; those that are no printable ASCII become "?", so that what is printed is
// always valid and draws itself as wide as it is long.
//
// Memory is not looked after: a tool that has none left ends.
#pragma once

#include "libsys/internal.h"

#include <cstdint>
#include <json-c/json.h>

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

void put(json_object *into, const char *key, json value);
void put(json_object *into, const char *key, const char *value);
void put_number(json_object *into, const char *key, int64_t value);
void put_flag(json_object *into, const char *key, bool value);
json_object *put_table(json_object *into, const char *key);
json_object *put_list(json_object *into, const char *key);
void append(json_object *to, const char *value);
void append(json_object *to, int64_t value);
json_object *append_table(json_object *to);
// Gives a value of one table to another as well, where it is there.
void share(json_object *from, const char *key, json_object *into, const char *as);

// A value of a table, or what stands for one that is not there.
json_object *get(json_object *from, const char *key);
const char *text_of(json_object *from, const char *key, const char *absent = "");
int64_t get_number(json_object *from, const char *key, int64_t absent = 0);
bool get_flag(json_object *from, const char *key);
// For printf.
const char *shown(json_object *from, const char *key, const char *absent = "-");

// Whether a member is that text, or the same as another's.
bool is(json_object *from, const char *key, const char *text);
bool is_same(json_object *one, const char *key, json_object *other, const char *key_of_other);
bool begins(const char *text, const char *with);

// How many elements a list has; 0 where there is no list.
size_t count_of(json_object *list);

// The elements of a list, for a loop.
class items {
public:
    struct place {
        json_object *list;
        size_t at;

        json_object *operator*() const { return json_object_array_get_idx(list, at); }
        void operator++() { ++at; }
        bool operator!=(const place &other) const { return at != other.at; }
    };

    explicit items(json_object *list) : list_(list) {}
    place begin() const { return {list_, 0}; }
    place end() const { return {list_, count_of(list_)}; }

private:
    json_object *list_;
};

} // namespace ctl
