#include "plan/request.h"

#include "plan/json.h"

#include <bit>
#include <cstdint>
#include <json-c/json.h>
#include <libubox/blobmsg.h>
#include <limits>

namespace seam::plan {

namespace {

// A number as a message holds it, its highest byte first.
std::string bytes_of(uint64_t value, int size)
{
    std::string out;
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
        out += static_cast<char>(value >> shift & 0xff);
    }
    return out;
}

void add_value(ScriptText &script, std::string_view name, json_object *value);

void field(ScriptText &script, int type, std::string_view name, const std::string &bytes)
{
    script.line({"field", std::to_string(type), name, bytes});
}

void add_number(ScriptText &script, std::string_view name, int64_t value)
{
    using Limits = std::numeric_limits<int32_t>;
    const bool is_short = value >= Limits::min() && value <= Limits::max();
    field(script, is_short ? BLOBMSG_TYPE_INT32 : BLOBMSG_TYPE_INT64, name,
          bytes_of(static_cast<uint64_t>(value), is_short ? 4 : 8));
}

void add_members(ScriptText &script, json_object *table)
{
    for (json_object_iterator at = json_object_iter_begin(table), end = json_object_iter_end(table);
         !json_object_iter_equal(&at, &end); json_object_iter_next(&at)) {
        add_value(script, json_object_iter_peek_name(&at), json_object_iter_peek_value(&at));
    }
}

void add_elements(ScriptText &script, json_object *list)
{
    for (size_t i = 0; i < json_object_array_length(list); ++i) {
        add_value(script, "", json_object_array_get_idx(list, i));
    }
}

void add_nested(ScriptText &script, std::string_view name, json_object *value, int type)
{
    script.line({"open", std::to_string(type), name});
    type == BLOBMSG_TYPE_ARRAY ? add_elements(script, value) : add_members(script, value);
    script.line({"close"});
}

void add_value(ScriptText &script, std::string_view name, json_object *value)
{
    switch (json_object_get_type(value)) {
    case json_type_string:
        // With its terminator. A text may hold others before.
        field(script, BLOBMSG_TYPE_STRING, name,
              {json_object_get_string(value), static_cast<size_t>(json_object_get_string_len(value)) + 1});
        break;
    case json_type_int:
        add_number(script, name, json_object_get_int64(value));
        break;
    case json_type_boolean:
        field(script, BLOBMSG_TYPE_BOOL, name, bytes_of(json_object_get_boolean(value) != 0 ? 1 : 0, 1));
        break;
    case json_type_double:
        field(script, BLOBMSG_TYPE_DOUBLE, name,
              bytes_of(std::bit_cast<uint64_t>(json_object_get_double(value)), 8));
        break;
    case json_type_array:
        add_nested(script, name, value, BLOBMSG_TYPE_ARRAY);
        break;
    case json_type_object:
        add_nested(script, name, value, BLOBMSG_TYPE_TABLE);
        break;
    case json_type_null:
        field(script, BLOBMSG_TYPE_UNSPEC, name, "");
        break;
    }
}

} // namespace

std::string add_message(ScriptText &script, const std::string &json)
{
    std::string error;
    const Json message = parse_json(json, error);
    if (!error.empty()) {
        return error;
    }
    if (!json_object_is_type(message.get(), json_type_object)) {
        return "is not an object";
    }
    add_members(script, message.get());
    script.line({"."});
    return {};
}

} // namespace seam::plan
