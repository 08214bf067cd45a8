#include "blob.h"

#include <cstdint>

extern "C" {
#include <libubox/blobmsg.h>
}

namespace doubles {
namespace {

using Quote = std::string (*)(std::string_view);

std::string value_text(blob_attr *attr, Quote quote);

std::string list_text(blob_attr *first, size_t length, bool array, Quote quote)
{
    std::string out = array ? "[" : "{";
    const char *between = "";
    size_t rest = length;
    for (blob_attr *attr = first;
         rest > 0 && blob_pad_len(attr) <= rest && blob_pad_len(attr) >= sizeof(blob_attr);
         attr = blob_next(attr)) {
        rest -= blob_pad_len(attr);
        out += between;
        between = ", ";
        const std::string name = blobmsg_name(attr);
        out += name.empty() ? "" : name + ": ";
        out += value_text(attr, quote);
    }
    return out + (array ? "]" : "}");
}

std::string integer_text(blob_attr *attr, int size, const char *type)
{
    const auto *bytes = static_cast<const unsigned char *>(blobmsg_data(attr));
    uint64_t value = 0;
    for (int i = 0; i < size; i++) {
        value = value << 8 | bytes[i];
    }
    const int shift = 64 - 8 * size;
    return std::to_string(static_cast<int64_t>(value << shift) >> shift) + type;
}

std::string value_text(blob_attr *attr, Quote quote)
{
    auto *data = static_cast<blob_attr *>(blobmsg_data(attr));
    const auto length = static_cast<size_t>(blobmsg_data_len(attr));
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_ARRAY:
    case BLOBMSG_TYPE_TABLE:
        return list_text(data, length, blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY, quote);
    case BLOBMSG_TYPE_STRING: {
        const std::string_view text{reinterpret_cast<const char *>(data), length};
        if (text.empty() || text.back() != '\0') {
            return quote(text) + ":unterminated";
        }
        return quote(text.substr(0, text.size() - 1));
    }
    case BLOBMSG_TYPE_INT64:
        return integer_text(attr, 8, ":int64");
    case BLOBMSG_TYPE_INT32:
        return integer_text(attr, 4, "");
    case BLOBMSG_TYPE_INT16:
        return integer_text(attr, 2, ":int16");
    case BLOBMSG_TYPE_INT8:
        return integer_text(attr, 1, ":int8");
    default:
        return "?";
    }
}

} // namespace

std::string message_text(blob_attr *message, Quote quote)
{
    return list_text(static_cast<blob_attr *>(blob_data(message)), blob_len(message), false, quote);
}

int list_texts(blob_attr *list, char **out, int capacity)
{
    if (list == nullptr) {
        return -1;
    }
    int count = 0;
    blob_attr *element = nullptr;
    size_t rest = 0;
    blobmsg_for_each_attr(element, list, rest)
    {
        if (blobmsg_type(element) != BLOBMSG_TYPE_STRING) {
            return -1;
        }
        if (count < capacity) {
            out[count++] = blobmsg_get_string(element);
        }
    }
    return 0;
}

} // namespace doubles
