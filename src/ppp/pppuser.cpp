// Bus methods of "ivarode.pppuser": the accounts with which PPP peers dial in. They live in the platform's
// CHAP secrets alone; the daemon keeps no copy.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "platform/command.h"

int pppuser_ubus_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                     struct blob_attr *msg)
{
    arguments args(pppuser_add_policy, msg);
    args.require({pppuser_username, pppuser_provider, pppuser_password, pppuser_ipaddr},
                 "ppp user add input is null\n");
    const char *username = args.text(pppuser_username, "user is null\n");
    const char *provider = args.text(pppuser_provider, "provider is null\n");
    const char *password = args.text(pppuser_password, "password is null\n");
    const char *ipaddr = args.text(pppuser_ipaddr, "ipaddr is null\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    if (cslib_entry_add(username, provider, password, ipaddr) != 0) {
        NET_ERROR("chap secret entry add failed\n");
        return status_unknown_error;
    }
    return status_ok;
}

int pppuser_ubus_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                     struct blob_attr *msg)
{
    arguments args(pppuser_del_policy, msg);
    args.require({pppuser_username, pppuser_provider}, "ppp user del input is null\n");
    const char *username = args.text(pppuser_username, "user is null\n");
    const char *provider = args.text(pppuser_provider, "provider is null\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    if (cslib_entry_del(username, provider) != 0) {
        NET_ERROR("chap secret entry del failed\n");
        return status_unknown_error;
    }
    return status_ok;
}
