// The fixed skeleton of iptables chains that other programs fill.
//
// Laid at every start and safe to lay again: chains are created only where missing, a jump is added only to a
// chain just created, and four chains are emptied and refilled. A jump deleted by hand is not restored.
#pragma once

// Lays the whole skeleton. 0, or the first failure's code; what was laid stays.
int netpre_init();

// Refill "ipt_input_filter_rules_all", "input_filter_rules_drop" and "intf_sip_mesquerade". 0 or rv_iptables.
int netpre_ipt_input_all_init();
int netpre_input_drop_init();
int netpre_masquerade_init();

// Adds (add non-zero) or removes the rule in "input_filter_rules_drop" that drops all, or SSH alone, from an
// interface pattern. 0, or rv_iptables after a report.
int netpre_input_drop_rule(const char *pattern, int add);
int netpre_ssh_drop_rule(const char *pattern, int add);
