// Argument policies of the bus methods, and the indices by which handlers address the fields.
#pragma once

#include <libubus.h>
#include <stddef.h>
#include <stdint.h>

// One table of the shape blobmsg_parse takes, with its length.
template <size_t N> struct policy_table {
    struct blobmsg_policy fields[N];
    static constexpr int count = static_cast<int>(N);
};

enum port_name_field { port_name };
inline constexpr policy_table<1> port_name_policy = {{{"name", BLOBMSG_TYPE_STRING}}};

enum port_dump_field { port_dump_port };
inline constexpr policy_table<1> port_dump_policy = {{{"port", BLOBMSG_TYPE_INT32}}};

// "add" and "config" of an interface. The priority is a text, the VLAN IDs are numbers.
enum intf_field {
    intf_name,
    intf_old_name,
    intf_proto,
    intf_ipaddr,
    intf_netmask,
    intf_gateway,
    intf_defrt_pri,
    intf_mac,
    intf_vlanid1,
    intf_vlanid2,
    intf_username,
    intf_password,
    intf_server,
    intf_field_count
};
inline constexpr policy_table<intf_field_count> intf_policy = {{
    {"intf", BLOBMSG_TYPE_STRING},
    {"old_intf", BLOBMSG_TYPE_STRING},
    {"proto", BLOBMSG_TYPE_STRING},
    {"ipaddr", BLOBMSG_TYPE_STRING},
    {"netmask", BLOBMSG_TYPE_STRING},
    {"gateway", BLOBMSG_TYPE_STRING},
    {"defrt_pri", BLOBMSG_TYPE_STRING},
    {"mac", BLOBMSG_TYPE_STRING},
    {"vlanid1", BLOBMSG_TYPE_INT32},
    {"vlanid2", BLOBMSG_TYPE_INT32},
    {"username", BLOBMSG_TYPE_STRING},
    {"password", BLOBMSG_TYPE_STRING},
    {"server", BLOBMSG_TYPE_STRING},
}};

enum intf_del_field { intf_del_names };
inline constexpr policy_table<1> intf_del_policy = {{{"intf", BLOBMSG_TYPE_ARRAY}}};

enum intf_enable_field { intf_enable_names, intf_enable_value };
inline constexpr policy_table<2> intf_enable_policy = {{
    {"intf", BLOBMSG_TYPE_ARRAY},
    {"enable", BLOBMSG_TYPE_INT32},
}};

enum pppauth_field {
    pppauth_type,
    pppauth_username,
    pppauth_action,
    pppauth_ipaddr,
    pppauth_dial_mac,
    pppauth_dial_ip,
    pppauth_field_count
};
inline constexpr policy_table<pppauth_field_count> pppauth_policy = {{
    {"type", BLOBMSG_TYPE_STRING},
    {"username", BLOBMSG_TYPE_STRING},
    {"action", BLOBMSG_TYPE_STRING},
    {"ipaddr", BLOBMSG_TYPE_STRING},
    {"dial_mac", BLOBMSG_TYPE_STRING},
    {"dial_ip", BLOBMSG_TYPE_STRING},
}};

// "add" and "edit" of a route; the metric is a text too.
enum route_field {
    route_name,
    route_line,
    route_dstaddr,
    route_netmask,
    route_gateway,
    route_metric,
    route_field_count
};
inline constexpr policy_table<route_field_count> route_policy = {{
    {"name", BLOBMSG_TYPE_STRING},
    {"line", BLOBMSG_TYPE_STRING},
    {"dstaddr", BLOBMSG_TYPE_STRING},
    {"netmask", BLOBMSG_TYPE_STRING},
    {"gateway", BLOBMSG_TYPE_STRING},
    {"metric", BLOBMSG_TYPE_STRING},
}};

enum route_del_field { route_del_names };
inline constexpr policy_table<1> route_del_policy = {{{"name", BLOBMSG_TYPE_ARRAY}}};

enum route_enable_field { route_enable_names, route_enable_value };
inline constexpr policy_table<2> route_enable_policy = {{
    {"name", BLOBMSG_TYPE_ARRAY},
    {"enable", BLOBMSG_TYPE_INT32},
}};

enum pppuser_field {
    pppuser_username,
    pppuser_provider,
    pppuser_password,
    pppuser_ipaddr,
    pppuser_field_count
};
inline constexpr policy_table<pppuser_field_count> pppuser_add_policy = {{
    {"username", BLOBMSG_TYPE_STRING},
    {"provider", BLOBMSG_TYPE_STRING},
    {"password", BLOBMSG_TYPE_STRING},
    {"ipaddr", BLOBMSG_TYPE_STRING},
}};
inline constexpr policy_table<2> pppuser_del_policy = {{
    {"username", BLOBMSG_TYPE_STRING},
    {"provider", BLOBMSG_TYPE_STRING},
}};
