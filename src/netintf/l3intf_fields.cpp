#include "netintf/l3intf_fields.h"

uint16_t l3intf_vlan(struct blob_attr *field)
{
    return field != nullptr ? static_cast<uint16_t>(blobmsg_get_u32(field)) : vlan_none;
}

const char *l3intf_address_or_any(struct blob_attr *field)
{
    const char *text = blobmsg_get_string(field);
    return text != nullptr ? text : "0.0.0.0";
}

bool l3intf_name_is_lan(const char *name)
{
    return text_begins(name, "lan", __func__, __LINE__);
}

bool l3intf_name_is_wan(const char *name)
{
    return text_begins(name, "wan", __func__, __LINE__);
}
