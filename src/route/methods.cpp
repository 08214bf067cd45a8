// Bus methods of "ivarode.route". They check their arguments, call the table, and answer 0, or 2 for every
// failure whatever its cause.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "platform/bus.h"
#include "route/table.h"

namespace {

constexpr int name_capacity = 16;

using route_fields = struct blob_attr *[route_field_count];

// True when the first count fields are there; reports the first that is not. "edit" reports in the words of
// "add" too.
bool fields_present(const route_fields &fields, int count)
{
    for (int i = 0; i < count; i++) {
        if (fields[i] == nullptr) {
            NET_ERROR("route entry add err,param err ,i=%d\n", i);
            return false;
        }
    }
    return true;
}

route_cfg_texts texts_of(const route_fields &fields)
{
    return {
        blobmsg_get_string(fields[route_name]),    blobmsg_get_string(fields[route_line]),
        blobmsg_get_string(fields[route_dstaddr]), blobmsg_get_string(fields[route_netmask]),
        blobmsg_get_string(fields[route_gateway]), blobmsg_get_string(fields[route_metric]),
    };
}

} // namespace

int route_ubus_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                   struct blob_attr *msg)
{
    route_fields fields;
    policy_parse(route_policy, fields, msg);
    if (!fields_present(fields, route_metric)) {
        return status_invalid_argument;
    }
    if (const int rv = route_cfg_entry_new(1, texts_of(fields)); rv != rv_ok) {
        NET_ERROR("route entry new failed,rv=%d\n", rv);
        return status_invalid_argument;
    }
    NET_INFO("route entry add ok\n");
    return status_ok;
}

int route_ubus_edit(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                    struct blob_attr *msg)
{
    route_fields fields;
    policy_parse(route_policy, fields, msg);
    if (!fields_present(fields, route_field_count)) {
        return status_invalid_argument;
    }
    const route_cfg_texts texts = texts_of(fields);
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
    struct blob_attr *fields[route_del_policy.count];
    policy_parse(route_del_policy, fields, msg);
    if (fields[route_del_names] == nullptr) {
        NET_ERROR("route entry del err,param err ,i=%d\n", 0);
        return status_invalid_argument;
    }
    char *names[name_capacity] = {};
    if (ubuslib_bmsg_strlist_get(fields[route_del_names], names, name_capacity) != 0) {
        return status_invalid_argument;
    }
    for (const char *name : names) {
        if (name == nullptr) {
            break;
        }
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
    struct blob_attr *fields[route_enable_policy.count];
    policy_parse(route_enable_policy, fields, msg);
    if (fields[route_enable_names] == nullptr || fields[route_enable_value] == nullptr) {
        NET_ERROR("route entry enable err,param err %p %p\n", static_cast<void *>(fields[route_enable_names]),
                  static_cast<void *>(fields[route_enable_value]));
        return status_invalid_argument;
    }
    char *names[name_capacity] = {};
    if (ubuslib_bmsg_strlist_get(fields[route_enable_names], names, name_capacity) != 0) {
        NET_ERROR("route entry get strlist error\n");
        return status_invalid_argument;
    }
    const uint32_t enable = blobmsg_get_u32(fields[route_enable_value]);
    for (const char *name : names) {
        if (name == nullptr) {
            break;
        }
        if (route_cfg_entry_enable(name, enable) != rv_ok) {
            NET_ERROR("route set enable error,name=%s enable=%d\n", name, enable);
            return status_invalid_argument;
        }
    }
    return status_ok;
}
