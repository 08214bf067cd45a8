// Bus method "notify" of "ivarode.pppauth": the PPP side of the system tells of a peer's login or logout.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "core/text.h"
#include "ppp/auth_records.h"

int pppauth_ubus_notify(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                        struct blob_attr *msg)
{
    struct blob_attr *fields[pppauth_field_count];
    policy_parse(pppauth_policy, fields, msg);
    const char *type = blobmsg_get_string(fields[pppauth_type]);
    if (type == nullptr) {
        NET_ERROR("auth_type is null\n");
        return status_invalid_argument;
    }
    const char *ipaddr = blobmsg_get_string(fields[pppauth_ipaddr]);
    if (ipaddr == nullptr) {
        NET_ERROR("ipaddr is null\n");
        return status_invalid_argument;
    }
    const char *action = blobmsg_get_string(fields[pppauth_action]);
    if (action == nullptr) {
        NET_ERROR("action is null\n");
        return status_invalid_argument;
    }
    const char *username = blobmsg_get_string(fields[pppauth_username]);
    if (username == nullptr) {
        NET_ERROR("username is null\n");
        return status_invalid_argument;
    }
    const char *dial_mac = blobmsg_get_string(fields[pppauth_dial_mac]);
    const char *dial_ip = blobmsg_get_string(fields[pppauth_dial_ip]);

    int rv = rv_ok;
    if (text_begins(action, "up", __func__, __LINE__)) {
        rv = pppauth_db_insert(username, type, ipaddr, dial_mac, dial_ip);
    } else if (text_begins(action, "down", __func__, __LINE__)) {
        rv = pppauth_db_delete(username, type, ipaddr, dial_mac);
    }
    return rv == rv_ok ? status_ok : status_invalid_command;
}
