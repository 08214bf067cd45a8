#include "device.h"
#include "exports.h"
#include "internal.h"
#include "netlink.h"

#include <linux/if_link.h>

namespace libsys {

namespace {

int create_bridge(const char *name)
{
    netlink::request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    request.body<ifinfomsg>();
    nlmsghdr *header = request.header();
    mnl_attr_put_strz(header, IFLA_IFNAME, name);
    nlattr *info = mnl_attr_nest_start(header, IFLA_LINKINFO);
    mnl_attr_put_str(header, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(header, IFLA_INFO_DATA);
    // A port that has just been plugged in forwards at once; there is no second path that could make a loop.
    mnl_attr_put_u32(header, IFLA_BR_STP_STATE, 0);
    mnl_attr_put_u32(header, IFLA_BR_FORWARD_DELAY, 0);
    mnl_attr_nest_end(header, data);
    mnl_attr_nest_end(header, info);
    return netlink::exchange(request);
}

int set_bridge_of(uint32_t member, uint32_t bridge)
{
    netlink::request request(RTM_NEWLINK, 0);
    request.body<ifinfomsg>()->ifi_index = static_cast<int>(member);
    mnl_attr_put_u32(request.header(), IFLA_MASTER, bridge);
    return netlink::exchange(request);
}

int find_bridge(const char *name, device *out)
{
    int error = find_device(name, out);
    return !error && !is_kind(*out, "bridge") ? EINVAL : error;
}

int join(const char *br, const char *member)
{
    device bridge = {};
    device port = {};
    int error = find_bridge(br, &bridge);
    if (!error) {
        error = find_device(member, &port);
    }
    if (error || port.bridge == bridge.index) {
        return error;
    }
    return port.bridge != 0 ? EBUSY : set_bridge_of(port.index, bridge.index);
}

int leave(const char *br, const char *member)
{
    device bridge = {};
    device port = {};
    int error = find_bridge(br, &bridge);
    if (!error) {
        error = find_device(member, &port);
    }
    if (error || port.bridge != bridge.index) {
        return error == ENODEV ? 0 : error;
    }
    return set_bridge_of(port.index, 0);
}

} // namespace

} // namespace libsys

using namespace libsys;

int netlib_br_create(const char *name)
{
    device existing = {};
    int error = check_new_name(name);
    if (!error) {
        error = find_device(name, &existing);
        if (error == ENODEV) {
            error = create_bridge(name);
        } else if (!error && (!is_kind(existing, "bridge") || existing.stp || existing.forward_delay)) {
            error = EEXIST;
        }
    }
    return error ? fail(error, __func__, "%s", shown(name)) : 0;
}

int netlib_br_delete(const char *name)
{
    device bridge = {};
    int error = find_bridge(name, &bridge);
    if (!error) {
        error = delete_device(bridge.index);
    }
    return error && error != ENODEV ? fail(error, __func__, "%s", shown(name)) : 0;
}

int netlib_br_addif(const char *br, const char *member)
{
    int error = join(br, member);
    return error ? fail(error, __func__, "%s, %s", shown(br), shown(member)) : 0;
}

int netlib_br_delif(const char *br, const char *member)
{
    int error = leave(br, member);
    return error ? fail(error, __func__, "%s, %s", shown(br), shown(member)) : 0;
}
