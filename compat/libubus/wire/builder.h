// A message under construction, for the broker and its clients alike.
#pragma once

#include <libubus.h>

namespace wire {

// Freed with the scope. After a failure it is never sendable.
struct message_builder : blob_buf {
    message_builder() : blob_buf{} { ok = blob_buf_init(this, 0) == 0; }
    ~message_builder() { blob_buf_free(this); }
    message_builder(const message_builder &) = delete;
    message_builder &operator=(const message_builder &) = delete;

    void check(const void *added) { ok = ok && added != nullptr; }
    void put_u8(int id, uint8_t value) { check(blob_put_u8(this, id, value)); }
    void put_u32(int id, uint32_t value) { check(blob_put_u32(this, id, value)); }
    void put_string(int id, const char *text) { check(blob_put_string(this, id, text)); }
    // The payload of attr as the attribute `id`; null is an empty one.
    void put_data(int id, const blob_attr *attr)
    {
        check(blob_put(this, id, attr != nullptr ? blob_data(attr) : nullptr,
                       attr != nullptr ? static_cast<unsigned int>(blob_len(attr)) : 0));
    }
    bool sendable() const { return ok && blob_raw_len(head) <= UBUS_MAX_MSGLEN; }

    bool ok;
};

} // namespace wire
