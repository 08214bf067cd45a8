#include "service_object.h"

#include <array>
#include <csignal>

namespace lab {

namespace {

template <size_t N> using Policy = std::array<blobmsg_policy, N>;
template <size_t N> using Arguments = std::array<blob_attr *, N>;

enum {
    update_name,
    update_script,
    update_instances,
    update_triggers,
    update_validate,
    update_autostart,
    update_data
};
constexpr Policy<7> update_policy = {{{"name", BLOBMSG_TYPE_STRING},
                                      {"script", BLOBMSG_TYPE_STRING},
                                      {"instances", BLOBMSG_TYPE_TABLE},
                                      {"triggers", BLOBMSG_TYPE_ARRAY},
                                      {"validate", BLOBMSG_TYPE_ARRAY},
                                      {"autostart", BLOBMSG_TYPE_BOOL},
                                      {"data", BLOBMSG_TYPE_TABLE}}};
constexpr Policy<2> list_policy = {{{"name", BLOBMSG_TYPE_STRING}, {"verbose", BLOBMSG_TYPE_BOOL}}};
constexpr Policy<2> delete_policy = {{{"name", BLOBMSG_TYPE_STRING}, {"instance", BLOBMSG_TYPE_STRING}}};
constexpr Policy<3> signal_policy = {
    {{"name", BLOBMSG_TYPE_STRING}, {"instance", BLOBMSG_TYPE_STRING}, {"signal", BLOBMSG_TYPE_INT32}}};
constexpr Policy<2> state_policy = {{{"spawn", BLOBMSG_TYPE_BOOL}, {"name", BLOBMSG_TYPE_STRING}}};

template <size_t N> Arguments<N> parse(const Policy<N> &policy, blob_attr *arguments)
{
    Arguments<N> tb{};
    blobmsg_parse(policy.data(), static_cast<int>(N), tb.data(), blobmsg_data(arguments),
                  static_cast<unsigned>(blobmsg_data_len(arguments)));
    return tb;
}

} // namespace

ServiceObject::ServiceObject(OutputLog &output, const std::string &jail_helper)
    : supervisor_(output, jail_helper)
{
    const auto method = [this](const char *name, const auto &policy, auto handler) {
        bus_object_.add_method(name, policy.data(), static_cast<int>(policy.size()), handler);
    };
    method("set", update_policy,
           [this](blob_attr *arguments, const auto &) { return update(arguments, true); });
    method("add", update_policy,
           [this](blob_attr *arguments, const auto &) { return update(arguments, false); });
    method("list", list_policy, [this](blob_attr *arguments, const auto &reply) {
        const auto tb = parse(list_policy, arguments);
        Message message;
        supervisor_.list(message.get(), tb[0] ? blobmsg_get_string(tb[0]) : "");
        reply(message.head());
        return static_cast<int>(UBUS_STATUS_OK);
    });
    method("delete", delete_policy, [this](blob_attr *arguments, const auto &) { return remove(arguments); });
    method("signal", signal_policy, [this](blob_attr *arguments, const auto &) { return signal(arguments); });
    method("state", state_policy, [this](blob_attr *arguments, const auto &) { return state(arguments); });
}

int ServiceObject::update(blob_attr *arguments, bool replace)
{
    const auto tb = parse(update_policy, arguments);
    if (tb[update_name] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    ServiceRequest request;
    request.name = blobmsg_get_string(tb[update_name]);
    request.instances = tb[update_instances];
    request.data = tb[update_data];
    request.autostart = tb[update_autostart] == nullptr || blobmsg_get_bool(tb[update_autostart]);
    return supervisor_.update(request, replace);
}

int ServiceObject::remove(blob_attr *arguments)
{
    const auto tb = parse(delete_policy, arguments);
    if (tb[0] == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    return tb[1] != nullptr ? supervisor_.remove(blobmsg_get_string(tb[0]), blobmsg_get_string(tb[1]))
                            : supervisor_.remove(blobmsg_get_string(tb[0]));
}

int ServiceObject::signal(blob_attr *arguments)
{
    const auto tb = parse(signal_policy, arguments);
    if (tb[0] == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    const std::string instance = tb[1] != nullptr ? blobmsg_get_string(tb[1]) : "";
    const int number = tb[2] != nullptr ? static_cast<int>(blobmsg_get_u32(tb[2])) : SIGHUP;
    return supervisor_.signal(blobmsg_get_string(tb[0]), tb[1] != nullptr ? &instance : nullptr, number);
}

int ServiceObject::state(blob_attr *arguments)
{
    const auto tb = parse(state_policy, arguments);
    if (tb[0] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return tb[1] != nullptr ? supervisor_.set_state(blobmsg_get_string(tb[1]), blobmsg_get_bool(tb[0]))
                            : UBUS_STATUS_NOT_FOUND;
}

} // namespace lab
