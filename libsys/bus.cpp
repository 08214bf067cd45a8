// The connection that serves the daemon's own objects. When the broker goes, it is looked for again after 0.1
// s, then at doubling intervals of at most 2 s; all objects come back with it.

#include "bus_call.h"
#include "exports.h"
#include "internal.h"

#include <cstring>
#include <ctime>
#include <syslog.h>

namespace libsys {

namespace {

constexpr int own_objects = 1;
constexpr int first_retry_ms = 100;
constexpr int last_retry_ms = 2000;
constexpr int ask_interval_ms = 200;

ubus_context *serving = nullptr;
bool connected = false;
uloop_timeout retry_timer = {};
int retry_ms = first_retry_ms;

// Everything that has to be on the bus, in the order of its registration. The objects are the caller's.
struct registration {
    ubus_object *object;
};
registration *objects = nullptr;
size_t object_count = 0;

bool is_registered(ubus_object *object)
{
    return avl_find(&serving->objects, &object->id) == &object->avl;
}

void file_out(ubus_object *object)
{
    if (is_registered(object)) {
        avl_delete(&serving->objects, &object->avl);
    }
    object->id = 0;
}

// A new connection begins without objects and types, whatever a lost one has left in the records. A
// reconnection by itself would not tell which of them it could not bring back.
void file_all_out()
{
    for (size_t i = 0; i < object_count; ++i) {
        ubus_object *object = objects[i].object;
        file_out(object);
        object->has_subscribers = false;
        if (object->type != nullptr) {
            object->type->id = 0;
        }
    }
}

// Fails for instance while the broker still holds a name for the lost connection.
int register_all()
{
    for (size_t i = 0; i < object_count; ++i) {
        if (int status = ubus_add_object(serving, objects[i].object)) {
            return status;
        }
    }
    return 0;
}

void retry_later()
{
    uloop_timeout_set(&retry_timer, retry_ms);
    retry_ms = retry_ms * 2 < last_retry_ms ? retry_ms * 2 : last_retry_ms;
}

void on_connection_lost(ubus_context *context)
{
    uloop_fd_delete(&context->sock);
    if (connected) {
        connected = false;
        retry_ms = first_retry_ms;
        log_line(LOG_WARNING, "bus connection lost, looking for the broker");
        retry_later();
    }
}

void on_retry(uloop_timeout *)
{
    file_all_out();
    if (ubus_reconnect(serving, nullptr) != 0 || register_all() != 0) {
        retry_later();
        return;
    }
    connected = true;
    ubus_add_uloop(serving);
    log_line(LOG_NOTICE, "bus connection is back, all objects registered");
}

int add_objects(ubus_object **added, int count)
{
    size_t wanted = object_count + static_cast<size_t>(count);
    auto *list = static_cast<registration *>(realloc(objects, wanted * sizeof(registration)));
    if (list == nullptr) {
        return UBUS_STATUS_UNKNOWN_ERROR; // older bus libraries have none for memory
    }
    objects = list;
    for (int i = 0; i < count; ++i) {
        if (int status = ubus_add_object(serving, added[i])) {
            return status;
        }
        objects[object_count++].object = added[i];
    }
    return 0;
}

// Without a connection there is nobody to tell, only the object not to be brought back.
void remove_object(ubus_object *object)
{
    size_t at = 0;
    while (at < object_count && objects[at].object != object) {
        ++at;
    }
    if (at == object_count) {
        return;
    }
    memmove(objects + at, objects + at + 1, (--object_count - at) * sizeof(registration));
    if (is_registered(object) && ubus_remove_object(serving, object) != 0) {
        file_out(object);
    }
}

// An object whose registration broke off may have ids of the connection that was lost with it; registered
// again under such a type, it would come without name and methods.
void forget_ids(ubus_object *object)
{
    object->id = 0;
    if (object->type != nullptr) {
        object->type->id = 0;
    }
}

bool are_objects(int flag, ubus_object **list, int count)
{
    bool good = flag == own_objects && list != nullptr && count > 0;
    for (int i = 0; good && i < count; ++i) {
        good = list[i] != nullptr;
    }
    return good;
}

long long now_ms()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000LL + time.tv_nsec / 1000000;
}

void sleep_ms(long long milliseconds)
{
    timespec rest = {static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1000000};
    retry_eintr([&] { return nanosleep(&rest, &rest); });
}

} // namespace

} // namespace libsys

using namespace libsys;

int libsys::serving_socket()
{
    return serving != nullptr ? serving->sock.fd : -1;
}

int ubuslib_connect_init(void)
{
    if (serving != nullptr) {
        return 0;
    }
    serving = ubus_connect(nullptr);
    if (serving == nullptr) {
        return fail(ECONNREFUSED, __func__, "%s", "");
    }
    connected = true;
    retry_timer.cb = on_retry;
    serving->connection_lost = on_connection_lost;
    ubus_add_uloop(serving);
    return 0;
}

int ubuslib_task_status_wait(const char *object, int timeout)
{
    if (object == nullptr || !object[0] || timeout < 0) {
        return fail(EINVAL, __func__, "%s, %d", shown(object), timeout);
    }
    long long deadline = now_ms() + timeout * 1000LL;
    for (;;) {
        long long asked = now_ms();
        long long left = deadline - asked;
        long long patience = left < ask_interval_ms   ? ask_interval_ms
                             : left < call_timeout_ms ? left
                                                      : call_timeout_ms;
        int status = call_bus(object, "run", nullptr, nullptr, nullptr, static_cast<int>(patience));
        if (status == 0) {
            return 0;
        }
        long long next = asked + ask_interval_ms;
        if (next >= deadline) {
            return fail_bus(status, __func__, "%s, %d", object, timeout);
        }
        if (next > now_ms()) {
            sleep_ms(next - now_ms());
        }
    }
}

int ubuslib_invoke_init(int flag, struct ubus_object **list, int count)
{
    if (!are_objects(flag, list, count)) {
        return fail(EINVAL, __func__, "%d, %d objects", flag, count);
    }
    if (serving == nullptr) {
        return fail(ENOTCONN, __func__, "%d objects", count);
    }
    int status = add_objects(list, count);
    if (status) {
        for (int i = 0; i < count; ++i) {
            remove_object(list[i]);
            forget_ids(list[i]);
        }
        return fail_bus(status, __func__, "%d objects", count);
    }
    return 0;
}

int ubuslib_invoke_exit(int flag, struct ubus_object **list, int count)
{
    if (!are_objects(flag, list, count)) {
        return fail(EINVAL, __func__, "%d, %d objects", flag, count);
    }
    for (int i = 0; i < count; ++i) {
        remove_object(list[i]);
    }
    return 0;
}

int ubuslib_invoke_call(const char *object, const char *method, struct blob_buf *msg,
                        ubus_data_handler_t reply, void *priv)
{
    if (object == nullptr || method == nullptr) {
        return fail(EINVAL, __func__, "%s, %s", shown(object), shown(method));
    }
    int status = call_bus(object, method, msg, reply, priv);
    return status ? fail_bus(status, __func__, "%s, %s", object, method) : 0;
}

int ubuslib_bmsg_strlist_get(struct blob_attr *array, char **out, int capacity)
{
    if (array == nullptr || out == nullptr || capacity < 0 || blobmsg_type(array) != BLOBMSG_TYPE_ARRAY) {
        return fail(EINVAL, __func__, "%s, %d", array != nullptr ? "attribute" : "(null)", capacity);
    }
    int count = 0;
    blob_attr *element = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(element, array, left)
    {
        if (count == capacity) {
            break;
        }
        // The bus checks no deeper than the array itself.
        if (blobmsg_type(element) != BLOBMSG_TYPE_STRING || !blobmsg_check_attr(element, false)) {
            return fail(EINVAL, __func__, "element %d is not a string", count);
        }
        out[count++] = blobmsg_get_string(element);
    }
    return 0;
}
