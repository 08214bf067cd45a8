#include "device.h"
#include "exports.h"
#include "internal.h"
#include "netlink.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_link.h>

namespace libsys {

namespace {

bool possible_name(const char *name)
{
    return name != nullptr && name[0] != '\0' && strnlen(name, IFNAMSIZ) < IFNAMSIZ;
}

void read_kind(const nlattr *info, device *out)
{
    netlink::value_text(netlink::find(info, IFLA_INFO_KIND), out->kind, sizeof(out->kind));
    const nlattr *data = netlink::find(info, IFLA_INFO_DATA);
    if (is_kind(*out, "vlan")) {
        out->vlan_id = netlink::value_u16(netlink::find(data, IFLA_VLAN_ID), 0);
        // Kernels that know only one kind of tag do not name it.
        out->is_8021q = netlink::value_u16(netlink::find(data, IFLA_VLAN_PROTOCOL), htons(ETH_P_8021Q)) ==
                        htons(ETH_P_8021Q);
    } else if (is_kind(*out, "bridge")) {
        out->stp = netlink::value_u32(netlink::find(data, IFLA_BR_STP_STATE), 0);
        out->forward_delay = netlink::value_u32(netlink::find(data, IFLA_BR_FORWARD_DELAY), 0);
    }
}

void read_device(const nlmsghdr &message, const ifinfomsg &body, device *out)
{
    *out = {};
    out->index = static_cast<uint32_t>(body.ifi_index);
    out->flags = body.ifi_flags;
    out->lower = netlink::value_u32(netlink::find(message, sizeof(body), IFLA_LINK), 0);
    out->bridge = netlink::value_u32(netlink::find(message, sizeof(body), IFLA_MASTER), 0);
    const nlattr *address = netlink::find(message, sizeof(body), IFLA_ADDRESS);
    if (address != nullptr && mnl_attr_get_payload_len(address) == sizeof(out->mac)) {
        memcpy(out->mac, mnl_attr_get_payload(address), sizeof(out->mac));
        out->has_mac = true;
    }
    read_kind(netlink::find(message, sizeof(body), IFLA_LINKINFO), out);
}

int set_up(const char *operation, const char *name, bool up)
{
    int error = ENODEV;
    if (possible_name(name)) {
        netlink::request request(RTM_NEWLINK, 0);
        auto *body = request.body<ifinfomsg>();
        body->ifi_change = IFF_UP;
        body->ifi_flags = up ? IFF_UP : 0;
        mnl_attr_put_strz(request.header(), IFLA_IFNAME, name);
        error = netlink::exchange(request);
    }
    return error ? fail(error, operation, "%s", shown(name)) : 0;
}

int create_vlan(uint32_t master, int vid, const char *name)
{
    netlink::request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    request.body<ifinfomsg>();
    nlmsghdr *header = request.header();
    mnl_attr_put_strz(header, IFLA_IFNAME, name);
    mnl_attr_put_u32(header, IFLA_LINK, master);
    nlattr *info = mnl_attr_nest_start(header, IFLA_LINKINFO);
    mnl_attr_put_str(header, IFLA_INFO_KIND, "vlan");
    nlattr *data = mnl_attr_nest_start(header, IFLA_INFO_DATA);
    mnl_attr_put_u16(header, IFLA_VLAN_ID, static_cast<uint16_t>(vid));
    mnl_attr_nest_end(header, data);
    mnl_attr_nest_end(header, info);
    return netlink::exchange(request);
}

} // namespace

int find_device(const char *name, device *out)
{
    if (!possible_name(name)) {
        return ENODEV;
    }
    netlink::request request(RTM_GETLINK, 0);
    request.body<ifinfomsg>();
    mnl_attr_put_strz(request.header(), IFLA_IFNAME, name);
    // The counters are more than half of an answer, and nobody looks at them.
    mnl_attr_put_u32(request.header(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    request.answer_is_enough();
    netlink::reply answer;
    int error = netlink::exchange(request, &answer);
    if (error) {
        return error;
    }
    error = ENODEV;
    answer.each<ifinfomsg>(RTM_NEWLINK, [&](const nlmsghdr &message, const ifinfomsg &body) {
        read_device(message, body, out);
        error = 0;
    });
    return error;
}

bool is_kind(const device &which, const char *kind)
{
    return strcmp(which.kind, kind) == 0;
}

int check_new_name(const char *name)
{
    if (name == nullptr || !name[0] || strpbrk(name, "/: \t\n\v\f\r") != nullptr || !strcmp(name, ".") ||
        !strcmp(name, "..")) {
        return EINVAL;
    }
    return possible_name(name) ? 0 : ENAMETOOLONG;
}

int delete_device(uint32_t index)
{
    netlink::request request(RTM_DELLINK, 0);
    request.body<ifinfomsg>()->ifi_index = static_cast<int>(index);
    return netlink::exchange(request);
}

} // namespace libsys

using namespace libsys;

int netilib_vintf_create(const char *master, int vid)
{
    char name[2 * IFNAMSIZ];
    int error = 0;
    if (vid < 1 || vid > 4094) {
        error = EINVAL;
    } else if (!possible_name(master)) {
        error = ENODEV;
    } else {
        snprintf(name, sizeof(name), "%s.%d", master, vid);
        error = check_new_name(name);
    }
    device lower = {};
    device existing = {};
    if (!error) {
        error = find_device(master, &lower);
    }
    if (!error) {
        error = find_device(name, &existing);
        if (error == ENODEV) {
            error = create_vlan(lower.index, vid, name);
        } else if (!error &&
                   !(is_kind(existing, "vlan") && existing.is_8021q && existing.lower == lower.index &&
                     existing.vlan_id == static_cast<uint32_t>(vid))) {
            error = EEXIST;
        }
    }
    return error ? fail(error, __func__, "%s, %d", shown(master), vid) : 0;
}

int netlib_vintf_delete(const char *name)
{
    device which = {};
    int error = find_device(name, &which);
    if (!error) {
        error = is_kind(which, "vlan") ? delete_device(which.index) : EINVAL;
    }
    return error && error != ENODEV ? fail(error, __func__, "%s", shown(name)) : 0;
}

int netlib_eth_mac_set(const char *name, const uint8_t *mac)
{
    if (mac == nullptr) {
        return fail(EINVAL, __func__, "%s, (null)", shown(name));
    }
    device which = {};
    int error = find_device(name, &which);
    if (!error && !(which.has_mac && std::equal(mac, mac + sizeof(which.mac), which.mac))) {
        netlink::request request(RTM_NEWLINK, 0);
        request.body<ifinfomsg>()->ifi_index = static_cast<int>(which.index);
        mnl_attr_put(request.header(), IFLA_ADDRESS, sizeof(which.mac), mac);
        error = netlink::exchange(request);
    }
    return error ? fail(error, __func__, "%s, %02x:%02x:%02x:%02x:%02x:%02x", shown(name), mac[0], mac[1],
                        mac[2], mac[3], mac[4], mac[5])
                 : 0;
}

int netlib_eth_mac_get(const char *name, uint8_t *mac)
{
    device which = {};
    int error = mac != nullptr ? find_device(name, &which) : EINVAL;
    if (!error && !which.has_mac) {
        error = EADDRNOTAVAIL;
    }
    if (error) {
        return fail(error, __func__, "%s", shown(name));
    }
    memcpy(mac, which.mac, sizeof(which.mac));
    return 0;
}

int netlib_eth_intf_up(const char *name)
{
    return set_up(__func__, name, true);
}

int netlib_eth_intf_down(const char *name)
{
    return set_up(__func__, name, false);
}

int netlib_eth_intf_exist(const char *name)
{
    device which = {};
    int error = find_device(name, &which);
    if (error && error != ENODEV) {
        // The caller waits for the device to go, so an unanswered question must not look as if it had gone.
        fail(error, __func__, "%s", shown(name));
    }
    return error == ENODEV ? 0 : 1;
}
