// JSON values, owned and built.
#pragma once

#include <json-c/json.h>
#include <memory>
#include <string>
#include <vector>

namespace seam::plan {

struct JsonRelease {
    void operator()(json_object *value) const { json_object_put(value); }
};
using Json = std::unique_ptr<json_object, JsonRelease>;

// The whole text as one value; the error says why it is none.
Json parse_json(const std::string &text, std::string &error);

inline Json json_of(const std::string &text)
{
    return Json{json_object_new_string_len(text.data(), static_cast<int>(text.size()))};
}
inline Json json_of(const char *text)
{
    return json_of(std::string{text});
}
inline Json json_of(bool value)
{
    return Json{json_object_new_boolean(value ? 1 : 0)};
}
template <std::integral Number> Json json_of(Number number)
{
    return Json{json_object_new_int64(number)};
}
template <class Element> Json json_of(const std::vector<Element> &list)
{
    Json out{json_object_new_array()};
    for (const Element &element : list) {
        json_object_array_add(out.get(), json_of(element).release());
    }
    return out;
}

// A table under construction.
class JsonTable {
public:
    template <class Value> JsonTable &add(const char *key, const Value &value)
    {
        return add(key, json_of(value));
    }
    JsonTable &add(const char *key, Json value)
    {
        json_object_object_add(table_.get(), key, value.release());
        return *this;
    }
    Json take() { return std::move(table_); }

private:
    Json table_{json_object_new_object()};
};

} // namespace seam::plan
