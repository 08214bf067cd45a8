// The IPv4 address of a device. A device managed here has one; whatever else it carries goes when the address
// is set.

#include "device.h"
#include "exports.h"
#include "internal.h"
#include "ipv4.h"
#include "netlink.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/ip.h>

namespace libsys {

namespace {

struct address {
    uint32_t local; // host byte order
    uint32_t peer;  // the same, except on point-to-point devices
    uint8_t prefix;
    bool secondary; // lives only as long as the first address of its network does
};

template <typename Visit> int each_address(uint32_t index, Visit visit)
{
    netlink::request request(RTM_GETADDR, NLM_F_DUMP);
    request.body<ifaddrmsg>()->ifa_family = AF_INET;
    netlink::reply answer;
    if (int error = netlink::exchange(request, &answer)) {
        return error;
    }
    answer.each<ifaddrmsg>(RTM_NEWADDR, [&](const nlmsghdr &message, const ifaddrmsg &body) {
        if (body.ifa_family == AF_INET && body.ifa_index == index) {
            uint32_t peer = netlink::value_u32(netlink::find(message, sizeof(body), IFA_ADDRESS), 0);
            uint32_t local = netlink::value_u32(netlink::find(message, sizeof(body), IFA_LOCAL), peer);
            visit(address{ntohl(local), ntohl(peer), body.ifa_prefixlen,
                          (body.ifa_flags & IFA_F_SECONDARY) != 0});
        }
    });
    return 0;
}

int change(uint16_t type, uint16_t flags, uint32_t index, const address &which)
{
    netlink::request request(type, flags);
    auto *body = request.body<ifaddrmsg>();
    body->ifa_family = AF_INET;
    body->ifa_prefixlen = which.prefix;
    body->ifa_index = index;
    mnl_attr_put_u32(request.header(), IFA_LOCAL, htonl(which.local));
    mnl_attr_put_u32(request.header(), IFA_ADDRESS, htonl(which.peer));
    if (type == RTM_NEWADDR && which.prefix < 31) {
        mnl_attr_put_u32(request.header(), IFA_BROADCAST, htonl(which.local | ~mask_of(which.prefix)));
    }
    return netlink::exchange(request);
}

int add(uint32_t index, const address &which)
{
    return change(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, index, which);
}

int remove(uint32_t index, const address &which)
{
    int error = change(RTM_DELADDR, 0, index, which);
    // Gone already: the kernel drops an address together with the one that it was second to.
    return error == EADDRNOTAVAIL ? 0 : error;
}

uint8_t classful_prefix(uint32_t ip)
{
    return ip >> 31 == 0 ? 8 : ip >> 30 == 2 ? 16 : ip >> 29 == 6 ? 24 : 32;
}

// Lets a second address of a network outlive the first one, so that the device is never without an address
// (at its last address the kernel flushes every route through the device). A kernel that refuses costs those
// routes, not the address.
void keep_secondaries(uint32_t index)
{
    netlink::request request(RTM_SETLINK, 0);
    request.body<ifinfomsg>()->ifi_index = static_cast<int>(index);
    nlmsghdr *header = request.header();
    nlattr *families = mnl_attr_nest_start(header, IFLA_AF_SPEC);
    nlattr *ipv4 = mnl_attr_nest_start(header, AF_INET);
    nlattr *settings = mnl_attr_nest_start(header, IFLA_INET_CONF);
    mnl_attr_put_u32(header, IPV4_DEVCONF_PROMOTE_SECONDARIES, 1);
    mnl_attr_nest_end(header, settings);
    mnl_attr_nest_end(header, ipv4);
    mnl_attr_nest_end(header, families);
    if (int error = netlink::exchange(request)) {
        fail(error, "keep secondary addresses", "device %u", index);
    }
}

// Removes every address for which unwanted() holds.
template <typename Unwanted> int remove_all(uint32_t index, Unwanted unwanted)
{
    int first_error = 0;
    int error = each_address(index, [&](const address &found) {
        if (!first_error && unwanted(found)) {
            first_error = remove(index, found);
        }
    });
    return error ? error : first_error;
}

bool same(const address &a, const address &b)
{
    return a.local == b.local && a.prefix == b.prefix;
}

// Leaves `wanted` (which is there) alone on the device, out of those for which rival() holds.
template <typename Rival> int leave_only(uint32_t index, const address &wanted, Rival rival)
{
    auto unwanted = [&](const address &found) { return !same(found, wanted) && rival(found); };
    bool others = false;
    bool secondary = false;
    int error = each_address(index, [&](const address &found) {
        others = others || unwanted(found);
        secondary = secondary || (same(found, wanted) && found.secondary);
    });
    if (error || !others) {
        return error;
    }
    if (secondary) {
        keep_secondaries(index);
    }
    error = remove_all(index, unwanted);
    bool there = false;
    if (!error) {
        error = each_address(index, [&](const address &found) { there = there || same(found, wanted); });
    }
    return error || there ? error : add(index, wanted);
}

int set_ip(const char *name, const char *ip)
{
    uint32_t number = 0;
    if (!parse_ipv4(ip, &number)) {
        return EINVAL;
    }
    device which = {};
    if (int error = find_device(name, &which)) {
        return error;
    }
    if (number == 0) {
        return remove_all(which.index, [](const address &) { return true; });
    }
    address wanted = {number, number, classful_prefix(number), false};
    bool there = false;
    bool others = false;
    int error = each_address(which.index, [&](const address &found) {
        if (!there && found.local == number) {
            wanted = found;
            there = true;
        } else {
            others = true;
        }
    });
    if (!error && !there) {
        error = add(which.index, wanted);
    }
    return error || !others ? error : leave_only(which.index, wanted, [](const address &) { return true; });
}

int set_netmask(const char *name, const char *mask)
{
    uint8_t prefix = 0;
    if (!parse_mask(mask, &prefix)) {
        return EINVAL;
    }
    device which = {};
    if (int error = find_device(name, &which)) {
        return error;
    }
    // The first address counts. One with the mask that is wanted may be there beside it, after a change that
    // was cut short between adding the new and removing the old.
    address wanted = {};
    bool found_one = false;
    bool there = false;
    bool rivals = false;
    int error = each_address(which.index, [&](const address &found) {
        if (!found_one) {
            wanted = found;
            wanted.prefix = prefix;
            found_one = true;
        }
        if (found.local == wanted.local) {
            (found.prefix == prefix ? there : rivals) = true;
        }
    });
    if (error || !found_one) {
        return error ? error : EADDRNOTAVAIL;
    }
    if (!there) {
        error = add(which.index, wanted);
    }
    return error || !rivals ? error : leave_only(which.index, wanted, [&](const address &found) {
        return found.local == wanted.local;
    });
}

} // namespace

bool device_has_address(const char *name, uint32_t ip)
{
    device which = {};
    bool there = false;
    return find_device(name, &which) == 0 &&
           each_address(which.index, [&](const address &found) { there = there || found.local == ip; }) ==
               0 &&
           there;
}

} // namespace libsys

int netlib_intf_set_ip(const char *name, const char *ip)
{
    int error = libsys::set_ip(name, ip);
    return error ? libsys::fail(error, __func__, "%s, %s", libsys::shown(name), libsys::shown(ip)) : 0;
}

int netlib_intf_set_netmask(const char *name, const char *mask)
{
    int error = libsys::set_netmask(name, mask);
    return error ? libsys::fail(error, __func__, "%s, %s", libsys::shown(name), libsys::shown(mask)) : 0;
}
