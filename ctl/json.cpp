#include "json.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

bool is_printable(char c)
{
    return c >= ' ' && c <= '~';
}

json_object *text(const char *bytes)
{
    char *copy = strdup(bytes);
    if (copy == nullptr) {
        abort();
    }
    for (char *c = copy; *c != '\0'; ++c) {
        *c = is_printable(*c) ? *c : '?';
    }
    json_object *made = json_object_new_string(copy);
    free(copy);
    return made;
}

} // namespace

void put(json_object *into, const char *key, json value)
{
    json_object_object_add(into, key, value.release());
}

void put(json_object *into, const char *key, const char *value)
{
    json_object_object_add(into, key, text(value));
}

void put_number(json_object *into, const char *key, int64_t value)
{
    json_object_object_add(into, key, json_object_new_int64(value));
}

void put_flag(json_object *into, const char *key, bool value)
{
    json_object_object_add(into, key, json_object_new_boolean(value ? 1 : 0));
}

json_object *put_table(json_object *into, const char *key)
{
    json_object *made = json_object_new_object();
    json_object_object_add(into, key, made);
    return made;
}

json_object *put_list(json_object *into, const char *key)
{
    json_object *made = json_object_new_array();
    json_object_object_add(into, key, made);
    return made;
}

void append(json_object *to, const char *value)
{
    json_object_array_add(to, text(value));
}

void append(json_object *to, int64_t value)
{
    json_object_array_add(to, json_object_new_int64(value));
}

json_object *append_table(json_object *to)
{
    json_object *made = json_object_new_object();
    json_object_array_add(to, made);
    return made;
}

void share(json_object *from, const char *key, json_object *into, const char *as)
{
    if (json_object *value = get(from, key)) {
        json_object_object_add(into, as, json_object_get(value));
    }
}

json_object *get(json_object *from, const char *key)
{
    json_object *found = nullptr;
    return json_object_is_type(from, json_type_object) && json_object_object_get_ex(from, key, &found)
               ? found
               : nullptr;
}

const char *text_of(json_object *from, const char *key, const char *absent)
{
    json_object *found = get(from, key);
    return json_object_is_type(found, json_type_string) ? json_object_get_string(found) : absent;
}

int64_t get_number(json_object *from, const char *key, int64_t absent)
{
    json_object *found = get(from, key);
    return json_object_is_type(found, json_type_int) ? json_object_get_int64(found) : absent;
}

bool get_flag(json_object *from, const char *key)
{
    json_object *found = get(from, key);
    return json_object_is_type(found, json_type_boolean) && json_object_get_boolean(found);
}

const char *shown(json_object *from, const char *key, const char *absent)
{
    json_object *found = get(from, key);
    return found != nullptr ? json_object_get_string(found) : absent;
}

bool is(json_object *from, const char *key, const char *text)
{
    return strcmp(text_of(from, key), text) == 0;
}

bool is_same(json_object *one, const char *key, json_object *other, const char *key_of_other)
{
    return is(one, key, text_of(other, key_of_other));
}

bool begins(const char *text, const char *with)
{
    return strncmp(text, with, strlen(with)) == 0;
}

size_t count_of(json_object *list)
{
    return json_object_is_type(list, json_type_array) ? json_object_array_length(list) : 0;
}

} // namespace ctl
