// Bus messages: built field by field for a call, and shown as text for the trace.
#pragma once

#include <cstdint>
#include <string>

extern "C" {
#include <libubox/blobmsg.h>
}

namespace recorder {

class Message {
public:
    Message();
    ~Message();
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;

    // One script line: "field TYPE NAME DATA", "open TYPE NAME" or "close". Data are the bytes as on the
    // wire.
    void add(const std::string &word, uint32_t type, const std::string &name, const std::string &data);
    blob_attr *head() const { return buf_.head; }

private:
    blob_buf buf_{};
    void *open_[16]{};
    unsigned depth_ = 0;
};

// A message as it stands in the trace.
std::string message_text(blob_attr *message);

} // namespace recorder
