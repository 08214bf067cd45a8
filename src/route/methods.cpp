// Bus methods of "ivarode.route". They check their arguments, call the table, and answer 0, or 2 for any
// failure.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "route/table.h"

namespace {

constexpr int name_capacity = 16;

using route_arguments = arguments<route_field_count>;

// True when the first count fields are there; reports the first missing one. "edit" reports with the text of
// "add", on purpose.
bool fields_present(const route_arguments &args, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (args[i] == nullptr) {
            NET_ERROR("route entry add err,param err ,i=%d\n", static_cast<int>(i));
            return false;
        }
    }
    return true;
}

route_cfg_texts texts_of(const route_arguments &args)
{
    return {
        .name = args.text(route_name),
        .line = args.text(route_line),
        .dstaddr = args.text(route_dstaddr),
        .netmask = args.text(route_netmask),
        .gateway = args.text(route_gateway),
        .metric = args.text(route_metric),
    };
}

} // namespace

int route_ubus_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                   struct blob_attr *msg)
{
    const route_arguments args(route_policy, msg);
    if (!fields_present(args, route_metric)) {
        return status_invalid_argument;
    }
    if (const int rv = route_cfg_entry_new(1, texts_of(args)); rv != rv_ok) {
        NET_ERROR("route entry new failed,rv=%d\n", rv);
        return status_invalid_argument;
    }
    NET_INFO("route entry add ok\n");
    return status_ok;
}

int route_ubus_edit(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                    struct blob_attr *msg)
{
    const route_arguments args(route_policy, msg);
    if (!fields_present(args, route_field_count)) {
        return status_invalid_argument;
    }
    const route_cfg_texts texts = texts_of(args);
    if (const int rv = route_cfg_entry_edit(texts); rv != rv_ok) {
        NET_ERROR("edit route entry failed,rv=%d\n", rv);
        return status_invalid_argument;
    }
    NET_INFO("route entry edit ok, name=%s\n", texts.name);
    return status_ok;
}

int route_ubus_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                   struct blob_attr *msg)
{
    const arguments args(route_del_policy, msg);
    if (args[route_del_names] == nullptr) {
        NET_ERROR("route entry del err,param err ,i=%d\n", 0);
        return status_invalid_argument;
    }
    name_list<name_capacity> names;
    if (names.read(args[route_del_names]) != 0) {
        return status_invalid_argument;
    }
    for (const char *name : names) {
        if (const int rv = route_cfg_entry_del(name); rv != rv_ok) {
            NET_ERROR("route entry del failed,name=%s,rv=%d\n", name, rv);
            return status_invalid_argument;
        }
        NET_INFO("route entry del ok, name=%s\n", name);
    }
    return status_ok;
}

int route_ubus_enable(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                      struct blob_attr *msg)
{
    const arguments args(route_enable_policy, msg);
    if (args[route_enable_names] == nullptr || args[route_enable_value] == nullptr) {
        NET_ERROR("route entry enable err,param err %p %p\n", static_cast<void *>(args[route_enable_names]),
                  static_cast<void *>(args[route_enable_value]));
        return status_invalid_argument;
    }
    name_list<name_capacity> names;
    if (names.read(args[route_enable_names]) != 0) {
        NET_ERROR("route entry get strlist error\n");
        return status_invalid_argument;
    }
    const uint32_t enable = blobmsg_get_u32(args[route_enable_value]);
    for (const char *name : names) {
        if (route_cfg_entry_enable(name, enable) != rv_ok) {
            NET_ERROR("route set enable error,name=%s enable=%d\n", name, enable);
            return status_invalid_argument;
        }
    }
    return status_ok;
}
