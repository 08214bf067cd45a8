#include "message.h"

#include "trace.h"

#include <cstdlib>
#include <endian.h>

namespace recorder {
namespace {

std::string value_text(blob_attr *attr);

std::string list_text(blob_attr *first, size_t length, bool array)
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
        if (!array || !name.empty()) {
            out += name + ": ";
        }
        out += value_text(attr);
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

std::string value_text(blob_attr *attr)
{
    auto *data = static_cast<blob_attr *>(blobmsg_data(attr));
    const auto length = static_cast<size_t>(blobmsg_data_len(attr));
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_ARRAY:
    case BLOBMSG_TYPE_TABLE:
        return list_text(data, length, blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
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

Message::Message()
{
    blob_buf_init(&buf_, 0);
}

Message::~Message()
{
    blob_buf_free(&buf_);
}

void Message::add(const std::string &word, uint32_t type, const std::string &name, const std::string &data)
{
    if (word == "field") {
        blobmsg_add_field(&buf_, static_cast<int>(type), name.c_str(), data.data(),
                          static_cast<unsigned>(data.size()));
    } else if (word == "open" && depth_ < 16) {
        open_[depth_++] = blobmsg_open_nested(&buf_, name.c_str(), type == BLOBMSG_TYPE_ARRAY);
    } else if (word == "close" && depth_ > 0) {
        blob_nest_end(&buf_, open_[--depth_]);
    } else {
        abort();
    }
}

std::string message_text(blob_attr *message)
{
    return list_text(static_cast<blob_attr *>(blob_data(message)), blob_len(message), false);
}

} // namespace recorder
