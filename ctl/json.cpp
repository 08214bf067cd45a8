#include "json.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

bool is_printable(char c)
{
    return c >= ' ' && c <= '~';
}

} // namespace

json_object *text(std::string_view bytes)
{
    bool clean = true;
    for (const char c : bytes) {
        clean = clean && is_printable(c);
    }
    if (clean) {
        return json_object_new_string_len(bytes.data(), static_cast<int>(bytes.size()));
    }
    auto *copy = static_cast<char *>(malloc(bytes.size()));
    if (copy == nullptr) {
        abort();
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        copy[i] = is_printable(bytes[i]) ? bytes[i] : '?';
    }
    json_object *made = json_object_new_string_len(copy, static_cast<int>(bytes.size()));
    free(copy);
    return made;
}

void put(json_object *into, const char *key, json value)
{
    json_object_object_add(into, key, value.release());
}

void put(json_object *into, const char *key, std::string_view value)
{
    json_object_object_add(into, key, text(value));
}

void put(json_object *into, const char *key, const char *value)
{
    put(into, key, std::string_view{value});
}

void put_number(json_object *into, const char *key, int64_t value)
{
    json_object_object_add(into, key, json_object_new_int64(value));
}

void put_flag(json_object *into, const char *key, bool value)
{
    json_object_object_add(into, key, json_object_new_boolean(value ? 1 : 0));
}

void append(json_object *to, json value)
{
    json_object_array_add(to, value.release());
}

void append(json_object *to, int64_t value)
{
    json_object_array_add(to, json_object_new_int64(value));
}

json_object *get(json_object *from, const char *key)
{
    json_object *found = nullptr;
    return json_object_is_type(from, json_type_object) && json_object_object_get_ex(from, key, &found)
               ? found
               : nullptr;
}

std::string_view get_text(json_object *from, const char *key, std::string_view absent)
{
    json_object *found = get(from, key);
    return json_object_is_type(found, json_type_string)
               ? std::string_view{json_object_get_string(found),
                                  static_cast<size_t>(json_object_get_string_len(found))}
               : absent;
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

} // namespace ctl
