// A broker that means no good, against the bus library: greetings, replies and calls that nobody asked for,
// broken framing, connections that end anywhere. Calls of the library return, and what is registered stays
// usable.
//
// An input is a list of steps of client and broker. While the client waits in a call, the broker's next step
// is taken; when there is none, the broker hangs up. Time passes only by waiting.
#include "bus_message.h"
#include "input.h"

#include <cerrno>
#include <ctime>
#include <libubus.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using fuzz::promise;

constexpr int longest_session = 100;

fuzz::Input *script = nullptr;
int broker_fd = -1;
int64_t clock_ms = 0;

void broker_hang_up()
{
    if (broker_fd >= 0) {
        shutdown(broker_fd, SHUT_WR);
    }
}

void broker_read()
{
    char buffer[65536];
    while (broker_fd >= 0 && recv(broker_fd, buffer, sizeof buffer, MSG_DONTWAIT) > 0) {
    }
}

void broker_send(std::string_view bytes)
{
    if (broker_fd >= 0 && !bytes.empty()) {
        send(broker_fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
}

void broker_step()
{
    broker_read();
    if (script->empty()) {
        broker_hang_up();
        return;
    }
    const uint8_t what = script->u8();
    if (what >= 0xf8) {
        broker_hang_up();
    } else if (what >= 0xe0) {
        broker_send(script->bytes(what & 0x1f));
    } else {
        broker_send(fuzz::take_bus_message(*script));
    }
}

class Client {
public:
    Client();
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    bool connected() const { return connected_; }
    void step(uint8_t what);

private:
    static int on_call(ubus_context *ctx, ubus_object *object, ubus_request_data *req, const char *method,
                       blob_attr *msg);
    static void on_event(ubus_context *ctx, ubus_event_handler *handler, const char *type, blob_attr *msg);
    static void on_object(ubus_context *ctx, ubus_object_data *found, void *priv);
    static void on_data(ubus_request *req, int type, blob_attr *msg);
    static void on_descriptor(ubus_request *req, int fd);
    static void on_complete(ubus_request *req, int status);
    static void on_lost(ubus_context *ctx);
    static void look_at(const blob_attr *msg);
    static Client *self_;

    void start_async();
    void stop_async();

    ubus_context ctx_{};
    bool connected_ = false;
    ubus_method methods_[2] = {};
    ubus_object_type type_{};
    ubus_object object_{};
    ubus_event_handler listener_{};
    ubus_request async_{};
    bool async_runs_ = false;
    ubus_request_data deferred_{};
    bool is_deferred_ = false;
    blob_buf message_{};
    int depth_ = 0;
};

Client *Client::self_ = nullptr;

Client::Client()
{
    self_ = this;
    methods_[0].name = "add";
    methods_[0].handler = on_call;
    methods_[1].name = "query";
    methods_[1].handler = on_call;
    type_.name = "ivarode";
    type_.methods = methods_;
    type_.n_methods = 2;
    object_.name = "ivarode.intf";
    object_.type = &type_;
    object_.methods = methods_;
    object_.n_methods = 2;
    listener_.cb = on_event;
    blob_buf_init(&message_, 0);
    blobmsg_add_string(&message_, "intf", "lan1");
    connected_ = ubus_connect_ctx(&ctx_, nullptr) == 0;
    ctx_.connection_lost = on_lost;
}

Client::~Client()
{
    stop_async();
    ubus_shutdown(&ctx_);
    blob_buf_free(&message_);
    self_ = nullptr;
}

void Client::look_at(const blob_attr *msg)
{
    const blob_attr *attr;
    size_t left;
    unsigned sum = 0;
    blobmsg_for_each_attr(attr, msg, left)
    {
        for (size_t i = 0; i < blob_raw_len(attr); i++) {
            sum += reinterpret_cast<const uint8_t *>(attr)[i];
        }
    }
    promise(sum != 1, "each attribute begins with its length, which is four at least");
}

int Client::on_call(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *method,
                    blob_attr *msg)
{
    Client &client = *self_;
    promise(msg != nullptr && method != nullptr, "a call has a method and a message");
    look_at(msg);
    if (const int fd = ubus_request_get_caller_fd(req); fd >= 0) {
        close(fd);
    }
    ubus_send_reply(ctx, req, client.message_.head);
    if (method[0] == 'q' && !client.is_deferred_) {
        ubus_defer_request(ctx, req, &client.deferred_);
        client.is_deferred_ = true;
        return 0;
    }
    // A handler that calls others in turn.
    if (client.depth_ < 2) {
        client.depth_++;
        ubus_invoke(ctx, fuzz::first_id, "add", client.message_.head, on_data, nullptr, 1000);
        client.depth_--;
    }
    return UBUS_STATUS_NOT_FOUND;
}

void Client::on_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg)
{
    promise(type != nullptr, "an event has a type");
    look_at(msg);
}

void Client::on_object(ubus_context *, ubus_object_data *found, void *)
{
    look_at(found->signature);
}

void Client::on_data(ubus_request *, int, blob_attr *msg)
{
    promise(msg != nullptr, "data is a message");
    look_at(msg);
}

void Client::on_descriptor(ubus_request *, int fd)
{
    close(fd);
}

void Client::on_complete(ubus_request *, int)
{
    self_->async_runs_ = false;
}

void Client::on_lost(ubus_context *) {}

void Client::start_async()
{
    if (async_runs_ || ubus_invoke_async(&ctx_, fuzz::first_id + 1, "add", message_.head, &async_) != 0) {
        return;
    }
    async_.data_cb = on_data;
    async_.fd_cb = on_descriptor;
    async_.complete_cb = on_complete;
    async_runs_ = true;
    ubus_complete_request_async(&ctx_, &async_);
}

void Client::stop_async()
{
    if (async_runs_) {
        ubus_abort_request(&ctx_, &async_);
        async_runs_ = false;
    }
}

void Client::step(uint8_t what)
{
    uint32_t id = 0;
    switch (what % 16) {
    case 0:
        if (object_.id == 0) {
            ubus_add_object(&ctx_, &object_);
        }
        break;
    case 1:
        if (object_.id != 0) {
            ubus_remove_object(&ctx_, &object_);
        }
        break;
    case 2:
        ubus_lookup(&ctx_, what < 0x80 ? nullptr : "iva*", on_object, nullptr);
        break;
    case 3:
        ubus_lookup_id(&ctx_, "ivarode.intf", &id);
        break;
    case 4:
        ubus_invoke(&ctx_, fuzz::first_id + what / 16U, "add", message_.head, on_data, nullptr,
                    what < 0x80 ? 0 : 3000);
        break;
    case 5:
        start_async();
        break;
    case 6:
        stop_async();
        break;
    case 7:
        ubus_send_event(&ctx_, "ivarode", message_.head);
        break;
    case 8:
        ubus_register_event_handler(&ctx_, &listener_, what < 0x80 ? "*" : "iva*");
        break;
    case 9:
        if (listener_.obj.id != 0) {
            ubus_unregister_event_handler(&ctx_, &listener_);
        }
        break;
    case 10:
        ubus_reconnect(&ctx_, nullptr);
        break;
    case 11:
        if (is_deferred_) {
            is_deferred_ = false;
            ubus_complete_deferred_request(&ctx_, &deferred_, 0);
        }
        break;
    case 12:
        ubus_flush_requests(&ctx_);
        break;
    default:
        broker_step();
        if (ctx_.sock.fd >= 0) {
            ubus_handle_event(&ctx_);
        }
    }
    broker_read();
}

} // namespace

extern "C" {

int __real_poll(pollfd *fds, nfds_t count, int timeout);

// A socket pair in place of a connection; the broker greets unless the input says that it does not.
int __wrap_connect(int fd, const sockaddr *, socklen_t)
{
    int ends[2];
    if (broker_fd >= 0) {
        close(broker_fd);
        broker_fd = -1;
    }
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return -1;
    }
    dup2(ends[0], fd);
    close(ends[0]);
    broker_fd = ends[1];
    if (script->u8() % 8 != 7) {
        broker_send(fuzz::bus_message(UBUS_MSG_HELLO, 0, fuzz::first_id, {}));
    }
    return 0;
}

int __wrap_poll(pollfd *fds, nfds_t count, int timeout)
{
    int ready = __real_poll(fds, count, 0);
    if (ready == 0) {
        clock_ms += timeout > 0 ? timeout / 4 : 1000;
        broker_step();
        ready = __real_poll(fds, count, 0);
    }
    return ready;
}

int __wrap_clock_gettime(clockid_t, timespec *now)
{
    now->tv_sec = clock_ms / 1000;
    now->tv_nsec = clock_ms % 1000 * 1000000;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    script = &input;
    clock_ms = 0;
    {
        Client client;
        for (int steps = 0; client.connected() && steps < longest_session && !input.empty(); steps++) {
            client.step(input.u8());
        }
    }
    if (broker_fd >= 0) {
        close(broker_fd);
        broker_fd = -1;
    }
    uloop_done();
    return 0;
}

} // extern "C"
