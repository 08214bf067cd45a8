// Static routes through a gateway.

#include "device.h"
#include "exports.h"
#include "fib.h"
#include "internal.h"
#include "ipv4.h"

namespace libsys {

namespace {

// The kernel refuses a destination with bits outside its mask; so do we, before a removal could meet another
// route than the one that is meant.
int read_route(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev, int metric,
               fib_route *out)
{
    *out = {};
    if (!parse_ipv4(dst, &out->destination) || !parse_mask(mask, &out->prefix) ||
        !parse_ipv4(gw, &out->gateway) || (out->destination & ~mask_of(out->prefix)) || metric < 0 ||
        table == RT_TABLE_UNSPEC) {
        return EINVAL;
    }
    const bool has_device = dev != nullptr && dev[0] != '\0';
    if (!out->gateway && !has_device) {
        return EINVAL;
    }
    out->table = table;
    out->metric = static_cast<uint32_t>(metric);
    if (has_device) {
        device through = {};
        if (int error = find_device(dev, &through)) {
            return error;
        }
        out->device = through.index;
    }
    return 0;
}

bool is_meant(const fib_route &route, const fib_route &wanted)
{
    return route.table == wanted.table && route.destination == wanted.destination &&
           route.prefix == wanted.prefix && route.gateway == wanted.gateway &&
           route.metric == wanted.metric && (wanted.device == 0 || route.device == wanted.device);
}

// Whether the route is there: mostly it is the one in use; else (a narrower route, one of another table or of
// a lower metric comes before it, its device is down) its table is listed.
int look_for(const fib_route &wanted, bool *there)
{
    fib_route serving;
    *there = route_serving(wanted.destination, &serving) == 0 && is_meant(serving, wanted);
    if (*there) {
        return 0;
    }
    return each_route(wanted.table,
                      [&](const fib_route &route) { *there = *there || is_meant(route, wanted); });
}

// A removal that names no metric would take a route of any metric, and one that names a gateway a route with
// several of which it is the first; so the route is looked for before. Of several that differ in nothing but
// the metric the kernel takes the lowest one, which is then the one without.
int remove_exact(const fib_route &wanted)
{
    bool there = false;
    int error = look_for(wanted, &there);
    if (!error && !there) {
        error = ESRCH;
    }
    return error ? error : change_route(RTM_DELROUTE, 0, wanted);
}

} // namespace

} // namespace libsys

using namespace libsys;

int netlib_rt_add_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    fib_route route;
    int error = read_route(table, dst, mask, gw, dev, metric, &route);
    if (!error) {
        error = change_route(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_REPLACE, route);
    }
    return error ? fail(error, __func__, "%u, %s, %s, %s, %s, %d", table, shown(dst), shown(mask), shown(gw),
                        shown(dev), metric)
                 : 0;
}

int netlib_rt_del_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    fib_route route;
    int error = read_route(table, dst, mask, gw, dev, metric, &route);
    if (!error) {
        error = remove_exact(route);
    }
    return error ? fail(error, __func__, "%u, %s, %s, %s, %s, %d", table, shown(dst), shown(mask), shown(gw),
                        shown(dev), metric)
                 : 0;
}
