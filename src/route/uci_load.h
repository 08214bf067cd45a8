// Static routes from configuration.
#pragma once

struct uci_context;
struct uci_section;

// Loads every section of type "route" of package "route_config". 0 or rv_fail.
int route_cfg_uci_load();

// One section: its name is the route's; missing options leave their fields empty. The result of creating it.
int route_cfg_entry_uci_load(struct uci_context *ctx, struct uci_section *section, void *arg);
