// The bus and the event loop: the daemon's objects, its replies, what the kernel tells it, and its timer.
// What the daemon hands over as its own function is called through one of here, which records the event
// first.

#include "platform/bus.h"

#include "platform/events.h"
#include "platform/output.h"
#include "record/real.h"
#include "record/writer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>

using namespace seam::record;
using namespace seam::format;

namespace {

// Methods that change nothing in the daemon.
constexpr const char *questions[] = {"status", "statist", "port_dump", "run"};

int (*on_link)(const nl_link_event *) = nullptr;
int (*on_address)(const nl_addr_event *) = nullptr;
uloop_timeout_handler on_timer = nullptr;
uint32_t last_debug = 0;

bool is_question(const char *method)
{
    for (const char *known : questions) {
        if (strcmp(method, known) == 0) {
            return true;
        }
    }
    return false;
}

// Which of its texts the daemon writes depends on this word, which others may change at any time.
void note_debug_word()
{
    // Looked up: a program that is no daemon has none, and must start with this library all the same.
    static auto *const area = static_cast<uint32_t **>(find_symbol("g_netd_dbg_shm"));
    const uint32_t word = area == nullptr || *area == nullptr ? 0 : **area;
    if (word != last_debug) {
        last_debug = word;
        Entry(Kind::debug, now(), Event::change).number(word);
    }
}

void put_number(Kind kind, long long number)
{
    Entry(kind).number(number);
    event_over();
}

int link_changed(const nl_link_event *event)
{
    note_debug_word();
    {
        Entry entry(Kind::link, now(), Event::change);
        entry.number(event->port);
        entry.number(event->link);
    }
    const int result = on_link(event);
    put_number(Kind::returned, result);
    return result;
}

int address_came(const nl_addr_event *event)
{
    note_debug_word();
    {
        Entry entry(Kind::address, now(), Event::change);
        entry.number(event->ifindex);
        entry.number(event->ipaddr);
        // The number means nothing on another machine.
        char device[IF_NAMESIZE];
        if (if_indextoname(event->ifindex, device) != nullptr) {
            entry.tag(Tag::hidden);
            entry.text(device);
        }
    }
    const int result = on_address(event);
    put_number(Kind::returned, result);
    return result;
}

void timer_rang(uloop_timeout *timer)
{
    note_debug_word();
    {
        const Entry entry(Kind::timer, now(), Event::sample);
    }
    on_timer(timer);
    event_over();
}

// The daemon's own handlers stand behind the methods of an object.
int called(ubus_context *context, ubus_object *object, ubus_request_data *request, const char *method,
           blob_attr *message)
{
    int at = 0;
    while (at + 1 < object->n_methods && strcmp(object->methods[at].name, method) != 0) {
        ++at;
    }
    note_debug_word();
    {
        Entry entry(Kind::request, now(), is_question(method) ? Event::question : Event::change);
        entry.text(object->name);
        entry.text(method);
        entry.message(message);
    }
    const auto *handlers = reinterpret_cast<const ubus_handler_t *>(object->methods + object->n_methods);
    const int status = handlers[at](context, object, request, method, message);
    put_number(Kind::status, status);
    return status;
}

// The methods of an object with our function in place of its handlers, and these behind them; they live as
// long as the object. Without memory the object stays as it is.
void stand_in_front(ubus_object *object)
{
    const auto count = static_cast<size_t>(object->n_methods);
    auto *methods =
        static_cast<ubus_method *>(malloc(count * (sizeof(ubus_method) + sizeof(ubus_handler_t))));
    if (methods == nullptr || count == 0) {
        free(methods);
        return;
    }
    auto *handlers = reinterpret_cast<ubus_handler_t *>(methods + count);
    for (size_t i = 0; i < count; ++i) {
        methods[i] = object->methods[i];
        handlers[i] = methods[i].handler;
        methods[i].handler = called;
    }
    object->methods = methods;
    if (object->type != nullptr) {
        object->type->methods = methods;
    }
}

void put_result(Entry &entry, long long result)
{
    entry.tag(Tag::result);
    entry.number(result);
}

} // namespace

int netdbg_shm_init(void)
{
    const int result = real_function<netdbg_shm_init>(__func__)();
    if (is_recorded(__builtin_return_address(0))) {
        {
            Entry entry(Kind::call);
            entry.name(__func__);
            put_result(entry, result);
        }
        note_debug_word();
    }
    return result;
}

int ubuslib_invoke_init(int flag, struct ubus_object **objects, int count)
{
    const auto real = real_function<ubuslib_invoke_init>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(flag, objects, count);
    }
    for (int i = 0; i < count; ++i) {
        stand_in_front(objects[i]);
    }
    const uint64_t begun = now();
    const int result = real(flag, objects, count);
    Entry entry(Kind::call, begun);
    entry.name(__func__);
    entry.number(flag);
    char names[256];
    size_t used = 0;
    for (int i = 0; i < count && used + 64 < sizeof(names); ++i) {
        used += static_cast<size_t>(
            snprintf(names + used, sizeof(names) - used, "%s%.40s", i == 0 ? "[" : " ", objects[i]->name));
    }
    snprintf(names + used, sizeof(names) - used, "]");
    entry.text(names, Tag::word);
    entry.number(count);
    put_result(entry, result);
    return result;
}

int ubuslib_bmsg_strlist_get(struct blob_attr *array, char **out, int capacity)
{
    const auto real = real_function<ubuslib_bmsg_strlist_get>(__func__);
    const int result = real(array, out, capacity);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call);
        entry.name(__func__);
        entry.text(array == nullptr ? "null" : "list", Tag::word);
        entry.number(capacity);
        put_result(entry, result);
    }
    return result;
}

extern "C" int ubus_send_reply(struct ubus_context *context, struct ubus_request_data *request,
                               struct blob_attr *message)
{
    const auto real = real_function<ubus_send_reply>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(context, request, message);
    }
    const uint64_t begun = now();
    const int result = real(context, request, message);
    Entry entry(Kind::call, begun);
    entry.name("reply");
    entry.message(message);
    put_result(entry, result);
    return result;
}

extern "C" int uloop_init(void)
{
    const auto real = real_function<uloop_init>(__func__);
    const int result = real();
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call);
        entry.name(__func__);
        put_result(entry, result);
    }
    return result;
}

extern "C" int uloop_timeout_set(struct uloop_timeout *timeout, int msecs)
{
    const auto real = real_function<uloop_timeout_set>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(timeout, msecs);
    }
    // The daemon has one timer.
    if (timeout->cb != timer_rang && (on_timer == nullptr || on_timer == timeout->cb)) {
        on_timer = timeout->cb;
        timeout->cb = timer_rang;
    }
    const int result = real(timeout, msecs);
    Entry entry(Kind::call);
    entry.name(__func__);
    entry.number(msecs);
    put_result(entry, result);
    return result;
}

extern "C" int uloop_run_timeout(int timeout)
{
    const auto real = real_function<uloop_run_timeout>(__func__);
    if (is_recorded(__builtin_return_address(0))) {
        note_debug_word();
        {
            Entry entry(Kind::say);
            entry.name("uloop_run");
            entry.number(timeout);
        }
        start_over();
    }
    return real(timeout);
}

int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event))
{
    const auto real = real_function<nl_rx_event_reg>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(type, cb);
    }
    on_link = cb;
    const uint64_t begun = now();
    const int result = real(type, link_changed);
    Entry entry(Kind::call, begun);
    entry.name(__func__);
    entry.number(type);
    put_result(entry, result);
    return result;
}

int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event))
{
    const auto real = real_function<nl_rtmsg_handler_reg>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(type, cb);
    }
    on_address = cb;
    const uint64_t begun = now();
    const int result = real(type, address_came);
    Entry entry(Kind::call, begun);
    entry.name(__func__);
    entry.number(type);
    put_result(entry, result);
    return result;
}
