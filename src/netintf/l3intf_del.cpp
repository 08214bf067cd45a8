// Bus method "del": removes interfaces, in the order given, up to the first that fails.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/lifecycle.h"

namespace {

constexpr int del_capacity = 100;

bus_status intf_del(const char *name)
{
    switch (netintf_type_of(name)) {
    case intf_type_lan:
        if (netintf_lan_del(name) != rv_ok) {
            NET_INFO("lan del err,intf=%s\r\n", name);
            return status_invalid_command;
        }
        NET_INFO("lan del success,intf=%s\r\n", name);
        return status_ok;
    case intf_type_wan:
        if (netintf_wan_del(name) != rv_ok) {
            return status_invalid_command;
        }
        NET_INFO("wan del success,intf=%s\r\n", name);
        return status_ok;
    default:
        return status_invalid_argument;
    }
}

} // namespace

int netintf_ubus_l3intf_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                            const char *, struct blob_attr *msg)
{
    arguments args(intf_del_policy, msg);
    args.require({intf_del_names}, "l3intf_del interface name error\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    name_list<del_capacity> names;
    if (names.read(args[intf_del_names]) != 0) {
        NET_ERROR("intf del  get strlist error,%p\n", static_cast<void *>(args[intf_del_names]));
        return status_invalid_argument;
    }
    for (const char *name : names) {
        if (const bus_status status = intf_del(name); status != status_ok) {
            return status;
        }
    }
    return status_ok;
}
