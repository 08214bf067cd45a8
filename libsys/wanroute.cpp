// Default routes and policy rules of the WANs. Each WAN has a number P, which is at once the preference of
// its rule, the number of its routing table and the metric of its default route; WANs may share one.

#include "device.h"
#include "exports.h"
#include "fib.h"
#include "internal.h"
#include "ipv4.h"
#include "rule.h"
#include "rule_late.h"

namespace libsys {

namespace {

constexpr int lowest_wan = 10002;
constexpr int highest_wan = 32765;

// Connected networks come before the default route of any WAN, or a WAN's table would draw the traffic
// between the LANs to itself.
constexpr policy_rule connected_first = {10001, RT_TABLE_MAIN, 0};

// Outside this range lie tables and rules of the system, which a mistyped number must not reach.
bool is_wan_number(const char *operation, int priority)
{
    if (priority >= lowest_wan && priority <= highest_wan) {
        return true;
    }
    outlib_error("%s: WAN priority %d is not between %d and %d\n", operation, priority, lowest_wan,
                 highest_wan);
    return false;
}

bool is_default_of(const fib_route &route, uint32_t device)
{
    return route.prefix == 0 && route.device == device;
}

// Removes the default routes of a device from a table, except `kept`.
int remove_defaults(uint32_t table, uint32_t device, const fib_route *kept)
{
    int first_error = 0;
    int error = each_route(table, [&](const fib_route &route) {
        bool keep = kept != nullptr && route.gateway == kept->gateway && route.metric == kept->metric;
        if (is_default_of(route, device) && !keep) {
            int removed = change_route(RTM_DELROUTE, 0, route);
            if (removed && removed != ESRCH && !first_error) {
                first_error = removed;
            }
        }
    });
    return error ? error : first_error;
}

int add_default(uint32_t table, uint32_t gateway, uint32_t device)
{
    fib_route wanted = {table, 0, 0, gateway, device, table};
    bool there = false;
    int error = each_route(table, [&](const fib_route &route) {
        there = there || (is_default_of(route, device) && route.gateway == gateway && route.metric == table);
    });
    if (!error && !there) {
        // Behind the routes of the WANs that were here first.
        error = change_route(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_APPEND, wanted);
    }
    return error ? error : remove_defaults(table, device, &wanted);
}

// The rule for connected networks stands as long as a WAN's rule does.
int remove_connected_first_unless_needed()
{
    bool needed = false;
    int error = any_self_named_rule(lowest_wan, highest_wan, &needed);
    return error || needed ? error : remove_rules(connected_first.preference);
}

int add_rules(uint32_t table)
{
    int error = ensure_rule(connected_first);
    if (error) {
        return error;
    }
    error = ensure_rule({table, table});
    if (error) {
        remove_connected_first_unless_needed();
    }
    return error;
}

// Whether another device has a default route in the table.
int look_for_users(uint32_t table, uint32_t device, bool *used)
{
    *used = false;
    return each_route(table, [&](const fib_route &route) {
        *used = *used || (route.prefix == 0 && route.device != device);
    });
}

int remove_unused_rule(uint32_t table)
{
    const int error = remove_rules(table);
    return error ? error : remove_connected_first_unless_needed();
}

int remove_rule_unless_used(uint32_t table, uint32_t device)
{
    bool used = false;
    const int error = look_for_users(table, device, &used);
    return error || used ? error : remove_unused_rule(table);
}

// Where it is put off, the users are asked for once more then: an event script may have laid the route of
// another WAN meanwhile.
int remove_rule_in_time(uint32_t table, uint32_t device)
{
    bool used = false;
    const int error = look_for_users(table, device, &used);
    if (error || used || put_rule_removal_off(table, device, remove_rule_unless_used)) {
        return error;
    }
    return remove_unused_rule(table);
}

} // namespace

} // namespace libsys

using namespace libsys;

int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int priority2)
{
    uint32_t address = 0;
    device wan = {};
    int error = EINVAL;
    if (is_wan_number(__func__, priority) && priority == priority2 && parse_ipv4(gateway, &address) &&
        address) {
        error = find_device(name, &wan);
        if (!error) {
            error = add_default(static_cast<uint32_t>(priority), address, wan.index);
        }
    }
    return error ? fail(error, __func__, "%d, %s, %s, %d", priority, shown(gateway), shown(name), priority2)
                 : 0;
}

// The gateway is not compared: a device has one default in a table, and the caller may know it by another
// gateway than the one that was learnt since.
int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int priority2)
{
    device wan = {};
    int error = EINVAL;
    if (is_wan_number(__func__, priority) && priority == priority2) {
        error = find_device(name, &wan);
        if (!error) {
            error = remove_defaults(static_cast<uint32_t>(priority), wan.index, nullptr);
        } else if (error == ENODEV) {
            error = 0;
        }
    }
    return error ? fail(error, __func__, "%d, %s, %s, %d", priority, shown(gateway), shown(name), priority2)
                 : 0;
}

int netlib_intf_plcrt_add(const char *name, int priority)
{
    int error = EINVAL;
    if (name != nullptr && is_wan_number(__func__, priority)) {
        error = add_rules(static_cast<uint32_t>(priority));
    }
    return error ? fail(error, __func__, "%s, %d", shown(name), priority) : 0;
}

int netlib_intf_plcrt_del(const char *name, int priority)
{
    device wan = {};
    int error = EINVAL;
    if (name != nullptr && is_wan_number(__func__, priority)) {
        error = find_device(name, &wan);
        if (!error || error == ENODEV) {
            // A device that is gone has no index, and no route can have its index either.
            error = remove_rule_in_time(static_cast<uint32_t>(priority), wan.index);
        }
    }
    return error ? fail(error, __func__, "%s, %d", shown(name), priority) : 0;
}
