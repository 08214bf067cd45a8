/*
 * The bus as the benches use it: a client, and the object that is the limit of every method (an empty one, or
 * one with a ready-made answer) in a process of its own on the same broker. What fails ends the program.
 */
#pragma once

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}
#include <libubus.h>

#undef fallthrough
#undef __constructor
#undef __destructor

#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

// A message from its JSON text.
class message {
public:
    explicit message(const std::string &json);
    message(const message &) = delete;
    message &operator=(const message &) = delete;
    ~message() { blob_buf_free(&buffer_); }
    blob_attr *attribute() { return buffer_.head; }

private:
    blob_buf buffer_ = {};
};

class client {
public:
    client();
    client(const client &) = delete;
    client &operator=(const client &) = delete;
    ~client() { ubus_free(context_); }

    // Waits up to ten seconds for the object.
    uint32_t find(const std::string &object);
    // The status of a call; answer, when given, takes a copy of the reply's bytes.
    int call(uint32_t object, const char *method, blob_attr *arguments, std::vector<char> *answer = nullptr);
    // As call(), and gives up unless the status is 0.
    void must(uint32_t object, const char *method, blob_attr *arguments);
    // Calls with up to `window` of them on their way at once.
    void calls_at_once(uint32_t object, const char *method, blob_attr *arguments, int count, int window);
    ubus_context *context() { return context_; }

private:
    ubus_context *context_;
};

// The object NAME with one method "call", served by a child until this goes. It answers status 0, and before
// that a message when `answer` (bytes of one) is not empty.
class limit_object {
public:
    explicit limit_object(const char *name, std::vector<char> answer = {});
    limit_object(const limit_object &) = delete;
    limit_object &operator=(const limit_object &) = delete;
    ~limit_object();

private:
    pid_t child_;
};

} // namespace bench
