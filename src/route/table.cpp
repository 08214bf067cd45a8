#include "route/table.h"

#include "core/log.h"
#include "core/result.h"
#include "platform/config.h"
#include "platform/netdev.h"

#include <stdlib.h>
#include <string.h>
#include <uci.h>

namespace {

// An empty list from the beginning, so that look-ups before the load are safe.
struct route_cfg_list routes = {{&routes.head, &routes.head}, 0};

route_cfg_entry *entry_of(struct list_head *links)
{
    return list_entry(links, route_cfg_entry, links);
}

// Null lets the kernel choose the device. Plain strncmp on purpose: only look-ups in the list go through the
// checked one.
const char *device_of_line(const char *line)
{
    return line == nullptr || strncmp(line, "auto", strlen("auto")) == 0 ? nullptr : line;
}

void entry_write(route_cfg_entry *entry, const route_cfg_texts &texts,
                 const char *func = __builtin_FUNCTION())
{
    text_copy(entry->name, texts.name, func);
    text_copy(entry->line, texts.line, func);
    text_copy(entry->dstaddr, texts.dstaddr, func);
    text_copy(entry->netmask, texts.netmask, func);
    text_copy(entry->gateway, texts.gateway, func);
    entry->metric = texts.metric != nullptr ? atoi(texts.metric) : 0;
}

void install(const route_cfg_entry *entry)
{
    route_cfg_entry_rt_add(entry->line, entry->dstaddr, entry->netmask, entry->gateway, entry->metric);
}

void withdraw(const route_cfg_entry *entry)
{
    route_cfg_entry_rt_del(entry->line, entry->dstaddr, entry->netmask, entry->gateway, entry->metric);
}

int rule_add()
{
    char selector[512] = {};
    text_format(selector, sizeof(selector), "lookup %d", route_cfg_table);
    netlib_ip_rule_del(route_cfg_table);
    return netlib_ip_rule_add(route_cfg_table, selector) == 0 ? rv_ok : rv_route;
}

} // namespace

const struct route_cfg_list &route_cfg_list_get()
{
    return routes;
}

int route_cfg_rule_init()
{
    // Without the rule the interfaces still work; start-up goes on.
    rule_add();
    return rv_ok;
}

int route_cfg_init()
{
    routes.route_cfg_count = 0;
    INIT_LIST_HEAD(&routes.head);
    return ucilib_foreach_section("route_config", "route", route_cfg_entry_uci_load, nullptr) == 0 ? rv_ok
                                                                                                   : rv_fail;
}

int route_cfg_entry_uci_load(struct uci_context *ctx, struct uci_section *section, void *)
{
    const auto option = [ctx, section](const char *name) {
        return ucilib_lookup_option_string(ctx, section, name, nullptr);
    };
    route_cfg_texts texts = {};
    texts.name = section->e.name;
    texts.line = option("line");
    texts.dstaddr = option("dstaddr");
    texts.netmask = option("netmask");
    texts.gateway = option("gateway");
    texts.metric = option("metric");
    const char *enable = option("enable");
    return route_cfg_entry_new(enable != nullptr ? static_cast<uint32_t>(atoi(enable)) : 0, texts);
}

int route_cfg_entry_rt_add(const char *line, const char *dstaddr, const char *netmask, const char *gateway,
                           int metric)
{
    return netlib_rt_add_gw(route_cfg_table, dstaddr, netmask, gateway, device_of_line(line), metric) == 0
               ? rv_ok
               : rv_route;
}

int route_cfg_entry_rt_del(const char *line, const char *dstaddr, const char *netmask, const char *gateway,
                           int metric)
{
    return netlib_rt_del_gw(route_cfg_table, dstaddr, netmask, gateway, device_of_line(line), metric) == 0
               ? rv_ok
               : rv_route;
}

int route_cfg_entry_new(uint32_t enable, const route_cfg_texts &texts)
{
    NET_INFO("cfg_name=%s line=%s dstaddr=%s netmask=%s gateway=%s metric=%s enable=%d\n", texts.name,
             texts.line, texts.dstaddr, texts.netmask, texts.gateway, texts.metric, enable);
    auto *entry = static_cast<route_cfg_entry *>(calloc(1, sizeof(route_cfg_entry)));
    if (entry == nullptr) {
        return rv_no_memory;
    }
    entry_write(entry, texts);
    entry->enable = enable;
    list_add_tail(&entry->links, &routes.head);
    ++routes.route_cfg_count;
    if (enable == 1) {
        install(entry);
    }
    return rv_ok;
}

route_cfg_entry *route_cfg_entry_find(const char *name)
{
    for (struct list_head *links = routes.head.next; links != &routes.head; links = links->next) {
        route_cfg_entry *entry = entry_of(links);
        if (name_equals(entry->name, name)) {
            return entry;
        }
    }
    return nullptr;
}

int route_cfg_entry_edit(const route_cfg_texts &texts)
{
    route_cfg_entry *entry = route_cfg_entry_find(texts.name);
    if (entry == nullptr) {
        NET_ERROR("edit route entry find failed\n");
        return rv_invalid;
    }
    withdraw(entry);
    entry_write(entry, texts);
    if (entry->enable == 1) {
        install(entry);
    }
    return rv_ok;
}

int route_cfg_entry_enable(const char *name, uint32_t enable)
{
    route_cfg_entry *entry = route_cfg_entry_find(name);
    if (entry == nullptr) {
        NET_ERROR("%s %d entry find failed\n", __func__, 356);
        return rv_fail;
    }
    NET_INFO("route set enable OK!enable:%d\n", enable);
    entry->enable = enable;
    if (enable == 1) {
        install(entry);
    } else {
        withdraw(entry);
    }
    return rv_ok;
}

int route_cfg_entry_del(const char *name)
{
    route_cfg_entry *entry = route_cfg_entry_find(name);
    if (entry == nullptr) {
        return rv_fail;
    }
    withdraw(entry);
    list_del(&entry->links);
    free(entry);
    return rv_ok;
}
