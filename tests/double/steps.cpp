#include "steps.h"

#include "call.h"
#include "model.h"
#include "script.h"
#include "trace.h"

#include <cstdlib>
#include <cstring>
#include <libubus.h>
#include <malloc.h>
#include <unistd.h>

namespace recorder {
namespace {

ubus_context context{};
ubus_request_data request{};

const char *type_name(int type)
{
    switch (type) {
    case BLOBMSG_TYPE_ARRAY:
        return "ARRAY";
    case BLOBMSG_TYPE_STRING:
        return "STRING";
    case BLOBMSG_TYPE_INT32:
        return "INT32";
    default:
        return "other";
    }
}

std::string method_text(const ubus_method &method)
{
    std::string out = std::string{"method "} + method.name + "(";
    for (int i = 0; i < method.n_policy; i++) {
        out += (i == 0 ? "" : ", ") + std::string{method.policy[i].name} + ": " +
               type_name(static_cast<int>(method.policy[i].type));
    }
    return out + ")" + (method.mask == 0 ? "" : " mask") + (method.handler == nullptr ? " no handler" : "");
}

void show_objects()
{
    for (const ubus_object *object : scenario.objects) {
        const ubus_object_type *type = object->type;
        const bool same = type->methods == object->methods && type->n_methods == object->n_methods;
        trace_line("object " + std::string{object->name} + " type=" + type->name +
                   " id=" + std::to_string(object->id) + "/" + std::to_string(type->id) +
                   (same ? "" : " type and object differ"));
        for (int i = 0; i < object->n_methods; i++) {
            trace_line(method_text(object->methods[i]));
        }
    }
}

void show_model(const std::string &prefix)
{
    const std::string text = prefix == "vlans"   ? model.vlans()
                             : prefix == "pvids" ? model.pvids()
                                                 : model.dump(prefix);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin);
        trace_line(text.substr(begin, end - begin));
        begin = end + 1;
    }
}

void show_counter()
{
    uint64_t counter = 0;
    std::memcpy(&counter, reinterpret_cast<const unsigned char *>(debug_words()) + 16, sizeof counter);
    trace_line("counter " + std::to_string(counter));
}

uint32_t number(const std::vector<std::string> &line, size_t index)
{
    return index < line.size() ? static_cast<uint32_t>(std::strtoul(line[index].c_str(), nullptr, 0)) : 0;
}

void deliver_link(uint32_t port, uint32_t link)
{
    if (scenario.on_link == nullptr) {
        trace_line("no handler");
        return;
    }
    const nl_link_event event{port, link};
    trace_line("returned " + std::to_string(scenario.on_link(&event)));
}

void deliver_address(uint32_t address, uint32_t ifindex)
{
    if (scenario.on_address == nullptr) {
        trace_line("no handler");
        return;
    }
    const nl_addr_event event{ifindex, address};
    trace_line("returned " + std::to_string(scenario.on_address(&event)));
}

} // namespace

bool is_current_request(const void *ctx, const void *req)
{
    return ctx == &context && req == &request;
}

void call_method(const std::string &object, const std::string &method, const Message &message)
{
    for (ubus_object *candidate : scenario.objects) {
        for (int i = 0; object == candidate->name && i < candidate->n_methods; i++) {
            if (method != candidate->methods[i].name) {
                continue;
            }
            // A copy of exactly the message's size, spoilt afterwards: a handler may keep nothing of it.
            const size_t size = blob_pad_len(message.head());
            auto *copy = static_cast<blob_attr *>(malloc(size));
            std::memcpy(copy, message.head(), size);
            const int status =
                candidate->methods[i].handler(&context, candidate, &request, method.c_str(), copy);
            std::memset(static_cast<void *>(copy), 0xa5, size);
            free(copy);
            trace_line("status " + std::to_string(status));
            return;
        }
    }
    trace_line("script error: no method " + object + " " + method);
    _exit(98);
}

bool step(const std::vector<std::string> &line)
{
    const std::string &word = line[0];
    if (word == "step") {
        trace_line("> " + (line.size() > 1 ? line[1] : std::string{}) +
                   " fallible=" + std::to_string(fallible_counted()));
    } else if (word == "link") {
        deliver_link(number(line, 1), number(line, 2));
    } else if (word == "address") {
        deliver_address(number(line, 1), number(line, 2));
    } else if (word == "timer") {
        if (scenario.timer == nullptr) {
            trace_line("no timer");
        } else {
            uloop_timeout *timer = scenario.timer;
            scenario.timer = nullptr;
            timer->cb(timer);
        }
    } else if (word == "objects") {
        show_objects();
    } else if (word == "model") {
        show_model(line.size() > 1 ? line[1] : std::string{});
    } else if (word == "counter") {
        show_counter();
    } else if (word == "memory") {
        trace_line("memory " + std::to_string(mallinfo2().uordblks));
    } else {
        return false;
    }
    return true;
}

} // namespace recorder
