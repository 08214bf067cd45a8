#include "message.h"

#include "../double/blob.h"
#include "double.h"

#include <cstring>
#include <gtest/gtest.h>

namespace unit {

namespace {

ubus_context context{};
ubus_request_data request{};
bool running = false;

const ubus_method *method_find(const std::string &object, const std::string &method)
{
    for (const ubus_object *known : handed.objects) {
        if (object != known->name) {
            continue;
        }
        for (int i = 0; i < known->n_methods; i++) {
            if (method == known->methods[i].name) {
                return &known->methods[i];
            }
        }
    }
    return nullptr;
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

Message &Message::field(const char *name, int type, std::string_view bytes)
{
    blobmsg_add_field(buf_.get(), type, name, bytes.data(), static_cast<unsigned>(bytes.size()));
    return *this;
}

Message &Message::text(const char *name, std::string_view value)
{
    return field(name, BLOBMSG_TYPE_STRING, std::string{value} + '\0');
}

Message &Message::fields(const Fields &texts)
{
    for (const auto &[name, value] : texts) {
        text(name, value);
    }
    return *this;
}

Message &Message::number(const char *name, uint32_t value)
{
    blobmsg_add_u32(buf_.get(), name, value);
    return *this;
}

Message &Message::array(const char *name, const std::function<void(blob_buf *)> &fill)
{
    void *cookie = blobmsg_open_array(buf_.get(), name);
    fill(buf_.get());
    blobmsg_close_array(buf_.get(), cookie);
    return *this;
}

Message &Message::texts(const char *name, const std::vector<std::string> &values)
{
    return array(name, [&](blob_buf *buf) {
        for (const std::string &value : values) {
            blobmsg_add_string(buf, nullptr, value.c_str());
        }
    });
}

Message fields(const Fields &texts)
{
    return Message().fields(texts);
}

std::string message_text(blob_attr *message)
{
    return doubles::message_text(message, quote);
}

int call(const std::string &object, const std::string &method, const Message &message)
{
    const ubus_method *found = method_find(object, method);
    if (found == nullptr) {
        ADD_FAILURE() << "no method " << object << " " << method;
        return -1000;
    }
    const size_t size = blob_pad_len(message.head());
    auto *copy = static_cast<blob_attr *>(::operator new(size));
    std::memcpy(copy, message.head(), size);
    running = true;
    const int status = found->handler(&context, handed.objects.front(), &request, found->name, copy);
    running = false;
    std::memset(copy, 0xa5, size);
    ::operator delete(copy);
    return status;
}

bool is_current_request(const ubus_context *ctx, const ubus_request_data *req)
{
    return running && ctx == &context && req == &request;
}

} // namespace unit
