// Bus method "del": removes interfaces, in the order given, up to the first that fails.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "netintf/l3intf_fields.h"
#include "netintf/lifecycle.h"
#include "platform/bus.h"

namespace {

constexpr int del_capacity = 100;

int intf_del(const char *name)
{
    if (l3intf_name_is_lan(name)) {
        if (netintf_lan_del(name) != rv_ok) {
            NET_INFO("lan del err,intf=%s\r\n", name);
            return status_invalid_command;
        }
        NET_INFO("lan del success,intf=%s\r\n", name);
        return status_ok;
    }
    if (l3intf_name_is_wan(name)) {
        if (netintf_wan_del(name) != rv_ok) {
            return status_invalid_command;
        }
        NET_INFO("wan del success,intf=%s\r\n", name);
        return status_ok;
    }
    return status_invalid_argument;
}

} // namespace

int netintf_ubus_l3intf_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                            const char *, struct blob_attr *msg)
{
    struct blob_attr *fields[intf_del_policy.count];
    policy_parse(intf_del_policy, fields, msg);
    if (fields[intf_del_names] == nullptr) {
        NET_ERROR("l3intf_del interface name error\n");
        return status_invalid_argument;
    }
    char *names[del_capacity] = {};
    if (ubuslib_bmsg_strlist_get(fields[intf_del_names], names, del_capacity) != 0) {
        NET_ERROR("intf del  get strlist error,%p\n", static_cast<void *>(fields[intf_del_names]));
        return status_invalid_argument;
    }
    for (const char *name : names) {
        if (name == nullptr) {
            break;
        }
        if (const int status = intf_del(name); status != status_ok) {
            return status;
        }
    }
    return status_ok;
}
