#include "message.h"

#include "process.h"
#include "text.h"

#include <cstdlib>
#include <cstring>
#include <libubus.h>

namespace seam {
namespace {

ubus_context context{};
ubus_request_data request{};
bool running = false;

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
        out += name.empty() ? "" : name + ": ";
        out += value_text(attr);
    }
    return out + (array ? "]" : "}");
}

std::string integer_text(blob_attr *attr, int size, const char *type)
{
    const auto *bytes = static_cast<const unsigned char *>(blobmsg_data(attr));
    uint64_t value = 0;
    for (int i = 0; i < size; ++i) {
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
    case BLOBMSG_TYPE_UNSPEC:
        return length == 0 ? "null" : "?";
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

struct Found {
    ubus_object *object;
    const ubus_method *method;
};

std::optional<Found> method_find(const std::string &object, const std::string &method)
{
    for (ubus_object *known : process.objects) {
        for (int i = 0; object == known->name && i < known->n_methods; ++i) {
            if (method == known->methods[i].name) {
                return Found{known, &known->methods[i]};
            }
        }
    }
    return {};
}

} // namespace

Message::Message()
    : buf_(new blob_buf{}, [](blob_buf *buf) {
          blob_buf_free(buf);
          delete buf;
      })
{
    blob_buf_init(buf_.get(), 0);
}

Message::Message(const Fields &texts) : Message{}
{
    for (const auto &[name, value] : texts) {
        text(name, value);
    }
}

Message &Message::field(const char *name, int type, std::string_view bytes)
{
    blobmsg_add_field(buf_.get(), type, name, bytes.data(), static_cast<unsigned>(bytes.size()));
    return *this;
}

Message &Message::text(const char *name, std::string_view value)
{
    return field(name, BLOBMSG_TYPE_STRING, std::string{value} + '\0');
}

Message &Message::number(const char *name, uint32_t value)
{
    blobmsg_add_u32(buf_.get(), name, value);
    return *this;
}

Message &Message::texts(const char *name, const std::vector<std::string> &values)
{
    open(name, true);
    for (const std::string &value : values) {
        text("", value);
    }
    return close();
}

Message &Message::open(const char *name, bool array)
{
    open_.push_back(blobmsg_open_nested(buf_.get(), name, array));
    return *this;
}

Message &Message::close()
{
    blob_nest_end(buf_.get(), open_.back());
    open_.pop_back();
    return *this;
}

blob_attr *Message::head() const
{
    return buf_->head;
}

std::string message_text(blob_attr *message)
{
    return list_text(static_cast<blob_attr *>(blob_data(message)), blob_len(message), false);
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

std::optional<int> call_method_raw(const std::string &object, const std::string &method,
                                   std::string_view message)
{
    const std::optional<Found> found = method_find(object, method);
    if (!found) {
        return {};
    }
    auto *copy = static_cast<blob_attr *>(malloc(message.size()));
    std::memcpy(copy, message.data(), message.size());
    running = true;
    const int status = found->method->handler(&context, found->object, &request, found->method->name, copy);
    running = false;
    std::memset(static_cast<void *>(copy), 0xa5, message.size());
    free(copy);
    return status;
}

std::optional<int> call_method(const std::string &object, const std::string &method, const Message &message)
{
    return call_method_raw(object, method,
                           {reinterpret_cast<const char *>(message.head()), blob_pad_len(message.head())});
}

bool is_current_request(const void *ctx, const void *req)
{
    return running && ctx == &context && req == &request;
}

} // namespace seam
