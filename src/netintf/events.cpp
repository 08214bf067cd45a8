#include "netintf/events.h"

#include "core/log.h"
#include "core/result.h"
#include "netintf/proto.h"
#include "platform/netdev.h"

#include <string.h>

namespace {

constexpr size_t param_size = 1024;
constexpr int param_words_max = 2;

} // namespace

int netevt_nl_init()
{
    if (nl_init("ivarode") != 0 || nl_rx_event_reg(nl_event_link, netevt_nl_link_event) != 0) {
        return rv_board;
    }
    return rv_ok;
}

int netevt_nl_link_event(const struct nl_link_event *event)
{
    netintf_entry *head = netintf_port_head_get(event->port);
    if (head == nullptr) {
        NET_ERROR("%s %d,intf get failed\n", __func__, 101);
        return rv_fail;
    }
    if (event->link != 0) {
        if (const int rv = netintf_proto_intf_up(head); rv != rv_ok) {
            NET_ERROR("%s %d,intf up failed,rv=%d\n", __func__, 109, rv);
            return rv_fail;
        }
    } else if (netintf_proto_intf_down(head) != rv_ok) {
        NET_ERROR("%s %d,intf down failed\n", __func__, 117);
        return rv_fail;
    }
    NET_DEBUG("%s %d,intf %s %s success\n", __func__, 131, head->name, event->link != 0 ? "up" : "down");
    return rv_ok;
}

int netevt_wan_addr_reset(netintf_entry *entry)
{
    if (const int rv = netlib_intf_set_ip(entry->name, address_any); rv != 0) {
        return rv;
    }
    netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    entry->ipaddr = 0;
    entry->netmask = 0;
    entry->gateway = 0;
    entry->reserved[0] = 0;
    entry->reserved[1] = 0;
    char proto_text[name_size] = {};
    if (netintf_proto_enumtostr(entry->proto, proto_text, sizeof(proto_text)) != rv_ok) {
        return rv_fail;
    }
    return netlib_waninfo_db_update(entry->name, proto_text, address_any, address_any, address_any,
                                    address_any, address_any);
}

int netevt_proto_param_get(void *, const char *text)
{
    if (text == nullptr) {
        return rv_ok;
    }
    for (int words = 0;; ++words) {
        text += strspn(text, " ");
        if (*text == '\0') {
            return rv_ok;
        }
        if (words == param_words_max) {
            return rv_fail;
        }
        const size_t length = strcspn(text, " ");
        char word[param_size] = {};
        strncpy_safe_record(word, text, static_cast<unsigned>(length < param_size ? length : param_size),
                            __func__, 190);
        text += length;
    }
}
