#include "bus.h"

namespace lab {

namespace {

constexpr int retry_ms = 100;

} // namespace

void BusObject::add_method(const char *method, const blobmsg_policy *policy, int policy_count,
                           Handler handler)
{
    ubus_method entry{};
    entry.name = method;
    entry.handler = dispatch;
    entry.policy = policy;
    entry.n_policy = policy_count;
    methods.push_back(entry);
    handlers.push_back(std::move(handler));
}

int BusObject::dispatch(ubus_context *context, ubus_object *object, ubus_request_data *request,
                        const char *method, blob_attr *arguments)
{
    const BusObject &self = *reinterpret_cast<Node *>(object)->self;
    for (size_t i = 0; i < self.methods.size(); i++) {
        if (self.methods[i].name == std::string_view(method)) {
            return self.handlers[i](arguments,
                                    [&](blob_attr *message) { ubus_send_reply(context, request, message); });
        }
    }
    return UBUS_STATUS_METHOD_NOT_FOUND;
}

Bus::Bus(std::string socket_path) : path(std::move(socket_path)), retry([this] { connect(); })
{
    node.self = this;
}

Bus::~Bus()
{
    if (connected) {
        ubus_shutdown(&node.context);
    }
}

void Bus::start(std::function<void()> on_connected)
{
    connected_callback = std::move(on_connected);
    connect();
}

void Bus::connect()
{
    const char *socket = path.empty() ? nullptr : path.c_str();
    const bool again = had_connection;
    if ((again ? ubus_reconnect(&node.context, socket) : ubus_connect_ctx(&node.context, socket)) != 0) {
        retry.set(retry_ms);
        return;
    }
    had_connection = true;
    connected = true;
    node.context.connection_lost = [](ubus_context *context) {
        Bus &self = *reinterpret_cast<Node *>(context)->self;
        self.retry.set(retry_ms);
    };
    ubus_add_uloop(&node.context);
    if (!again) {
        connected_callback();
    }
}

int Bus::offer(BusObject &object)
{
    object.type.name = object.name.c_str();
    object.type.methods = object.methods.data();
    object.type.n_methods = static_cast<int>(object.methods.size());
    object.node.self = &object;
    object.node.object.name = object.name.c_str();
    object.node.object.type = &object.type;
    object.node.object.methods = object.methods.data();
    object.node.object.n_methods = static_cast<int>(object.methods.size());
    return ubus_add_object(&node.context, &object.node.object);
}

} // namespace lab
