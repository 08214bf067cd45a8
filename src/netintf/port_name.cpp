#include "netintf/port_name.h"

#include "core/text.h"
#include "netintf/registry.h"

#include <string.h>

uint32_t netintf_port_name_type(const char *name)
{
    constexpr size_t port_name_length = 4;
    if (strlen(name) != port_name_length) {
        return 0;
    }
    if (text_begins(name, "lan", __func__, __LINE__)) {
        return intf_type_lan;
    }
    return text_begins(name, "wan", __func__, __LINE__) ? intf_type_wan : 0;
}
