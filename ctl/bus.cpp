#include "bus.h"

#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace ctl {

namespace {

// Bus libraries differ in what they are built with.
constexpr const char *broker_paths[] = {"/var/run/ubus/ubus.sock", "/var/run/ubus.sock"};

constexpr const char *absent = "no bus broker answers";
constexpr const char *silent = "the bus broker does not greet within 3 s";

// The bus library waits without end for a greeting, so it is looked for first.
const char *broker_greets(const char *path)
{
    const libsys::unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un place = {};
    place.sun_family = AF_UNIX;
    strcpy(place.sun_path, path);
    if (!probe || connect(probe.get(), reinterpret_cast<sockaddr *>(&place), sizeof(place)) != 0) {
        return errno == EAGAIN ? silent : absent; // so many wait for it already
    }
    pollfd greeting = {probe.get(), POLLIN, 0};
    return libsys::retry_eintr([&] { return poll(&greeting, 1, bus_limit_ms); }) == 0 ? silent : nullptr;
}

void take(ubus_request *request, int /*type*/, blob_attr *message)
{
    auto &into = *static_cast<json *>(request->priv);
    const libsys::owned<char, free> text(blobmsg_format_json(message, true));
    into.reset(text != nullptr ? json_tokener_parse(text.get()) : nullptr);
}

} // namespace

bus::bus() : why_not_(absent)
{
    for (const char *path : broker_paths) {
        if (access(path, F_OK) == 0) {
            why_not_ = broker_greets(path);
            if (why_not_ == nullptr && ubus_connect_ctx(&context_, path) != 0) {
                why_not_ = absent;
            }
            return;
        }
    }
}

bus::~bus()
{
    if (why_not_ == nullptr) {
        ubus_shutdown(&context_);
    }
}

bool bus::find(const char *object, uint32_t *id)
{
    return why_not_ == nullptr && ubus_lookup_id(&context_, object, id) == 0 && *id != 0;
}

bool bus::has(const char *object)
{
    uint32_t id = 0;
    return find(object, &id);
}

int bus::ask(const char *object, const char *method, json *answer, int limit_ms)
{
    uint32_t id = 0;
    if (!find(object, &id)) {
        return why_not_ == nullptr ? UBUS_STATUS_NOT_FOUND : UBUS_STATUS_CONNECTION_FAILED;
    }
    blob_buf nothing = {};
    blob_buf_init(&nothing, 0);
    json ignored;
    const int status = ubus_invoke(&context_, id, method, nothing.head, take,
                                   answer != nullptr ? answer : &ignored, limit_ms);
    blob_buf_free(&nothing);
    return status;
}

} // namespace ctl
