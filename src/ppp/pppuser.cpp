// Bus methods of "ivarode.pppuser": the accounts with which PPP peers dial in. They live in the platform's
// CHAP secrets alone; the daemon keeps no copy.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "platform/command.h"

namespace {

template <size_t N> bool all_present(struct blob_attr *const (&fields)[N])
{
    for (const struct blob_attr *field : fields) {
        if (field == nullptr) {
            return false;
        }
    }
    return true;
}

// An account is known by the peer's name and the server's.
struct account {
    const char *username;
    const char *provider;
};

bool account_get(struct blob_attr *username, struct blob_attr *provider, account *who)
{
    who->username = blobmsg_get_string(username);
    if (who->username == nullptr) {
        NET_ERROR("user is null\n");
        return false;
    }
    who->provider = blobmsg_get_string(provider);
    if (who->provider == nullptr) {
        NET_ERROR("provider is null\n");
        return false;
    }
    return true;
}

} // namespace

int pppuser_ubus_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                     struct blob_attr *msg)
{
    struct blob_attr *fields[pppuser_add_policy.count];
    policy_parse(pppuser_add_policy, fields, msg);
    if (!all_present(fields)) {
        NET_ERROR("ppp user add input is null\n");
        return status_invalid_argument;
    }
    account who = {};
    if (!account_get(fields[pppuser_username], fields[pppuser_provider], &who)) {
        return status_invalid_argument;
    }
    const char *password = blobmsg_get_string(fields[pppuser_password]);
    if (password == nullptr) {
        NET_ERROR("password is null\n");
        return status_invalid_argument;
    }
    const char *ipaddr = blobmsg_get_string(fields[pppuser_ipaddr]);
    if (ipaddr == nullptr) {
        NET_ERROR("ipaddr is null\n");
        return status_invalid_argument;
    }
    if (cslib_entry_add(who.username, who.provider, password, ipaddr) != 0) {
        NET_ERROR("chap secret entry add failed\n");
        return status_unknown_error;
    }
    return status_ok;
}

int pppuser_ubus_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                     struct blob_attr *msg)
{
    struct blob_attr *fields[pppuser_del_policy.count];
    policy_parse(pppuser_del_policy, fields, msg);
    if (!all_present(fields)) {
        NET_ERROR("ppp user del input is null\n");
        return status_invalid_argument;
    }
    account who = {};
    if (!account_get(fields[pppuser_username], fields[pppuser_provider], &who)) {
        return status_invalid_argument;
    }
    if (cslib_entry_del(who.username, who.provider) != 0) {
        NET_ERROR("chap secret entry del failed\n");
        return status_unknown_error;
    }
    return status_ok;
}
