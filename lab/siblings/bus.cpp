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
    methods_.push_back(entry);
    handlers_.push_back(std::move(handler));
}

int BusObject::dispatch(ubus_context *context, ubus_object *object, ubus_request_data *request,
                        const char *method, blob_attr *arguments)
{
    const BusObject &self = *reinterpret_cast<Node *>(object)->self;
    for (size_t i = 0; i < self.methods_.size(); ++i) {
        if (self.methods_[i].name == std::string_view(method)) {
            return self.handlers_[i](arguments,
                                     [&](blob_attr *message) { ubus_send_reply(context, request, message); });
        }
    }
    return UBUS_STATUS_METHOD_NOT_FOUND;
}

Bus::Bus(std::string socket_path) : path_(std::move(socket_path)), retry_([this] { connect(); })
{
    node_.self = this;
}

Bus::~Bus()
{
    if (connected_) {
        ubus_shutdown(&node_.context);
    }
}

void Bus::start(std::function<void()> on_connected)
{
    connected_callback_ = std::move(on_connected);
    connect();
}

void Bus::connect()
{
    const char *socket = path_.empty() ? nullptr : path_.c_str();
    const bool again = had_connection_;
    const int failed =
        again ? ubus_reconnect(&node_.context, socket) : ubus_connect_ctx(&node_.context, socket);
    if (failed != 0) {
        retry_.set(retry_ms);
        return;
    }
    had_connection_ = true;
    connected_ = true;
    node_.context.connection_lost = [](ubus_context *context) {
        Bus &self = *reinterpret_cast<Node *>(context)->self;
        self.retry_.set(retry_ms);
    };
    ubus_add_uloop(&node_.context);
    if (!again) {
        connected_callback_();
    }
}

int Bus::offer(BusObject &object)
{
    object.type_.name = object.name_.c_str();
    object.type_.methods = object.methods_.data();
    object.type_.n_methods = static_cast<int>(object.methods_.size());
    object.node_.self = &object;
    object.node_.object.name = object.name_.c_str();
    object.node_.object.type = &object.type_;
    object.node_.object.methods = object.methods_.data();
    object.node_.object.n_methods = static_cast<int>(object.methods_.size());
    return ubus_add_object(&node_.context, &object.node_.object);
}

} // namespace lab
