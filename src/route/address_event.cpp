#include "route/address_event.h"

#include "core/log.h"
#include "core/result.h"

#include <arpa/inet.h>

route_cfg_entry *route_cfg_entry_find_by_gateway(const char *address)
{
    const struct list_head *head = &route_cfg_list_get().head;
    const in_addr_t reachable = inet_addr(address);
    for (struct list_head *links = head->next; links != head; links = links->next) {
        route_cfg_entry *entry = list_entry(links, route_cfg_entry, links);
        const in_addr_t mask = inet_addr(entry->netmask);
        if ((inet_addr(entry->gateway) & mask) == (reachable & mask)) {
            return entry;
        }
    }
    return nullptr;
}

int route_cfg_entry_gateway_update(const char *address)
{
    NET_INFO("update route item gateway=%s\n", address);
    const route_cfg_entry *entry = route_cfg_entry_find_by_gateway(address);
    if (entry == nullptr) {
        return rv_invalid;
    }
    if (entry->enable == 1) {
        route_cfg_entry_rt_add(entry->line, entry->dstaddr, entry->netmask, entry->gateway, entry->metric);
    }
    return rv_ok;
}

int route_addr_event_handler(const struct nl_addr_event *event)
{
    const uint32_t address = event->ipaddr;
    char text[name_size] = {};
    text_format(text, sizeof(text), "%d.%d.%d.%d", address >> 24, (address >> 16) & 0xff,
                (address >> 8) & 0xff, address & 0xff);
    route_cfg_entry_gateway_update(text);
    return rv_ok;
}
