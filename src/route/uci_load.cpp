#include "route/uci_load.h"

#include "core/result.h"
#include "platform/config.h"
#include "route/table.h"

#include <stdlib.h>
#include <uci.h>

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

int route_cfg_uci_load()
{
    return ucilib_foreach_section("route_config", "route", route_cfg_entry_uci_load, nullptr) == 0 ? rv_ok
                                                                                                   : rv_fail;
}
