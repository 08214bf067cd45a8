// Bus messages: built field by field, shown as text, and handed to the daemon's own objects.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <libubus.h>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace unit {

// Texts by the names of their fields, in the order in which a message holds them.
using Fields = std::initializer_list<std::pair<const char *, const char *>>;

// A message under construction. Copies share the message.
class Message {
public:
    Message();
    Message &text(const char *name, std::string_view value);
    Message &fields(const Fields &texts);
    Message &number(const char *name, uint32_t value);
    Message &texts(const char *name, const std::vector<std::string> &values);
    // An array whose elements fill adds.
    Message &array(const char *name, const std::function<void(blob_buf *)> &fill);
    // A field of any type with these bytes, well formed or not.
    Message &field(const char *name, int type, std::string_view bytes);
    blob_attr *head() const { return buf_->head; }

private:
    std::shared_ptr<blob_buf> buf_;
};

// A message of texts.
Message fields(const Fields &texts);

// JSON-like; names inside arrays are shown.
std::string message_text(blob_attr *message);

// Calls a method as the bus does: through the object that the daemon registered. The message lies in memory
// of its own exact size, which is gone after the call.
int call(const std::string &object, const std::string &method, const Message &message = {});

// True for the context and request of the call that is running.
bool is_current_request(const ubus_context *ctx, const ubus_request_data *req);

} // namespace unit
