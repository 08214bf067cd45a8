// Messages and JSON, both ways. Text that is taken comes back as text that makes the same message; bytes that
// are no message are printed without looking behind their end.
//
// An input that begins with "{" is text; any other is the content of a message.
#include "input.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

namespace {

using fuzz::promise;

struct Free {
    void operator()(void *memory) const { free(memory); }
};
using Text = std::unique_ptr<char, Free>;

class Buffer {
public:
    Buffer() { promise(blob_buf_init(&buf_, 0) == 0, "there is memory"); }
    ~Buffer() { blob_buf_free(&buf_); }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;

    bool add(const char *json) { return blobmsg_add_json_from_string(&buf_, json); }
    blob_attr *head() const { return buf_.head; }
    std::string_view bytes() const
    {
        return {reinterpret_cast<const char *>(buf_.head), blob_raw_len(buf_.head)};
    }

private:
    blob_buf buf_{};
};

void check_sound(const blob_attr *message)
{
    const blob_attr *attr;
    size_t left;
    blobmsg_for_each_attr(attr, message, left)
    {
        promise(blobmsg_check_attr(attr, false), "every field of a made message is sound");
    }
    promise(left == 0, "the fields fill the message");
}

// A table's member without a name prints without one, and JSON has no word for numbers that are not finite:
// what is printed is no JSON then.
bool is_beyond_json(const blob_attr *message, bool array)
{
    const blob_attr *attr;
    size_t left;
    blobmsg_for_each_attr(attr, message, left)
    {
        const int type = blobmsg_type(attr);
        const bool container = type == BLOBMSG_TYPE_ARRAY || type == BLOBMSG_TYPE_TABLE;
        if ((!array && blobmsg_name(attr)[0] == '\0') ||
            (type == BLOBMSG_TYPE_DOUBLE &&
             !std::isfinite(blobmsg_get_double(const_cast<blob_attr *>(attr)))) ||
            (container && is_beyond_json(attr, type == BLOBMSG_TYPE_ARRAY))) {
            return true;
        }
    }
    return false;
}

void from_text(const std::string &json)
{
    Buffer first;
    if (!first.add(json.c_str())) {
        return;
    }
    check_sound(first.head());
    const Text once{blobmsg_format_json(first.head(), true)};
    promise(once != nullptr, "there is memory");
    const Text indented{blobmsg_format_json_indent(first.head(), true, 0)};
    promise(indented != nullptr, "there is memory");
    if (is_beyond_json(first.head(), false)) {
        return;
    }

    Buffer second;
    promise(second.add(once.get()), "a message's text is taken");
    const Text twice{blobmsg_format_json(second.head(), true)};
    promise(strcmp(once.get(), twice.get()) == 0, "a message comes back from its text");
    Buffer third;
    promise(third.add(indented.get()) && third.bytes() == second.bytes(), "indentation changes nothing");
}

void from_bytes(std::string_view content)
{
    // In memory of its exact size, so that a sanitizer sees a read behind its end.
    const size_t size = sizeof(blob_attr) + content.size();
    const std::unique_ptr<char, Free> memory{static_cast<char *>(malloc(size))};
    auto *message = reinterpret_cast<blob_attr *>(memory.get());
    message->id_len = cpu_to_be32(static_cast<uint32_t>(size));
    memcpy(message->data, content.data(), content.size());
    for (const int indent : {-1, 0}) {
        const Text text{blobmsg_format_json_with_cb(message, true, nullptr, nullptr, indent)};
        promise(text != nullptr && text.get()[0] == '{' && text.get()[strlen(text.get()) - 1] == '}',
                "a message prints as an object");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view input{reinterpret_cast<const char *>(data), size};
    if (!input.empty() && input[0] == '{') {
        from_text(std::string{input});
    } else {
        from_bytes(input);
    }
    return 0;
}
