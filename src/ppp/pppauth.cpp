// Bus method "notify" of "ivarode.pppauth": a PPP peer has logged in or out.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/text.h"
#include "ppp/auth_records.h"

int pppauth_ubus_notify(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                        struct blob_attr *msg)
{
    arguments args(pppauth_policy, msg);
    const char *type = args.text(pppauth_type, "auth_type is null\n");
    const char *ipaddr = args.text(pppauth_ipaddr, "ipaddr is null\n");
    const char *action = args.text(pppauth_action, "action is null\n");
    const char *username = args.text(pppauth_username, "username is null\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    const char *dial_mac = args.text(pppauth_dial_mac);
    const char *dial_ip = args.text(pppauth_dial_ip);

    int rv = rv_ok;
    if (text_begins(action, "up")) {
        rv = pppauth_db_insert(username, type, ipaddr, dial_mac, dial_ip);
    } else if (text_begins(action, "down")) {
        rv = pppauth_db_delete(username, type, ipaddr, dial_mac);
    }
    return rv == rv_ok ? status_ok : status_invalid_command;
}
