// JSON text to messages, by json-c.
#include "exported.h"

#include <json-c/json.h>

namespace {

bool add_number(blob_buf *b, const char *name, json_object *obj)
{
    const int64_t value = json_object_get_int64(obj);
    if (value >= INT32_MIN && value <= INT32_MAX) {
        return blobmsg_add_u32(b, name, static_cast<uint32_t>(value)) == 0;
    }
    return blobmsg_add_u64(b, name, static_cast<uint64_t>(value)) == 0;
}

bool add_array(blob_buf *b, const char *name, json_object *obj)
{
    void *cookie = blobmsg_open_array(b, name);
    if (cookie == nullptr) {
        return false;
    }
    const size_t count = json_object_array_length(obj);
    bool complete = true;
    for (size_t i = 0; i < count && complete; i++) {
        complete = blobmsg_add_json_element(b, nullptr, json_object_array_get_idx(obj, i));
    }
    blobmsg_close_array(b, cookie);
    return complete;
}

bool add_table(blob_buf *b, const char *name, json_object *obj)
{
    void *cookie = blobmsg_open_table(b, name);
    if (cookie == nullptr) {
        return false;
    }
    const bool complete = blobmsg_add_object(b, obj);
    blobmsg_close_table(b, cookie);
    return complete;
}

// Takes over the reference.
bool add_root(blob_buf *b, json_object *obj)
{
    const bool added =
        obj != nullptr && (json_object_is_type(obj, json_type_object) != 0) && blobmsg_add_object(b, obj);
    json_object_put(obj);
    return added;
}

} // namespace

bool blobmsg_add_json_element(blob_buf *b, const char *name, json_object *obj)
{
    switch (json_object_get_type(obj)) {
    case json_type_object:
        return add_table(b, name, obj);
    case json_type_array:
        return add_array(b, name, obj);
    case json_type_string:
        return blobmsg_add_string(b, name, json_object_get_string(obj)) == 0;
    case json_type_boolean:
        return blobmsg_add_u8(b, name, json_object_get_boolean(obj) ? 1 : 0) == 0;
    case json_type_int:
        return add_number(b, name, obj);
    case json_type_double:
        return blobmsg_add_double(b, name, json_object_get_double(obj)) == 0;
    case json_type_null:
        return blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
    }
    return false;
}

bool blobmsg_add_object(blob_buf *b, json_object *obj)
{
    json_object_object_foreach(obj, key, value)
    {
        if (!blobmsg_add_json_element(b, key, value)) {
            return false;
        }
    }
    return true;
}

bool blobmsg_add_json_from_string(blob_buf *b, const char *str)
{
    return add_root(b, json_tokener_parse(str));
}

bool blobmsg_add_json_from_file(blob_buf *b, const char *file)
{
    return add_root(b, json_object_from_file(file));
}
