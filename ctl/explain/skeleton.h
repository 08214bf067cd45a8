// The jumps that the daemon lays at its start, in its order; those of one parent stand together.
#pragma once

namespace ctl {

struct skeleton_jump {
    const char *table;
    const char *parent;
    const char *chain;
};

constexpr skeleton_jump skeleton[] = {
    {"mangle", "PREROUTING", "ipt_prert_mangle_rules_1"},
    {"mangle", "PREROUTING", "ipt_prert_mangle_rules_2"},
    {"mangle", "PREROUTING", "ipt_prert_mangle_rules_3"},
    {"mangle", "ipt_prert_mangle_rules_1", "urlctrl_prert_mangle_rule"},
    {"mangle", "ipt_prert_mangle_rules_1", "wanload_prert_mangle_rule"},
    {"mangle", "FORWARD", "ipt_fwd_mangle_rules_1"},
    {"mangle", "ipt_fwd_mangle_rules_1", "ipt_fwd_mangle_rules_def"},
    {"mangle", "POSTROUTING", "ipt_postrt_mangle_rules_1"},
    {"nat", "PREROUTING", "ipt_prert_nat_rules_1"},
    {"nat", "PREROUTING", "ipt_prert_nat_rules_2"},
    {"nat", "PREROUTING", "ipt_prert_nat_rules_3"},
    {"nat", "ipt_prert_nat_rules_1", "pmap_rules_user"},
    {"nat", "POSTROUTING", "ipt_postrt_nat_rules_1"},
    {"nat", "POSTROUTING", "ipt_postrt_nat_rules_2"},
    {"nat", "POSTROUTING", "ipt_postrt_nat_rules_3"},
    {"nat", "ipt_postrt_nat_rules_1", "intf_sip_mesquerade"},
    {"filter", "FORWARD", "ipt_fwd_filter_rules_1"},
    {"filter", "FORWARD", "ipt_fwd_filter_rules_2"},
    {"filter", "FORWARD", "ipt_fwd_filter_rules_3"},
    {"filter", "ipt_fwd_filter_rules_2", "ipt_fwd_filter_rules_all"},
    {"filter", "ipt_fwd_filter_rules_2", "ipt_fwd_filter_mac"},
    {"filter", "ipt_fwd_filter_rules_2", "acl_fwd_filter_rules_user"},
    {"filter", "INPUT", "ipt_input_filter_rules_1"},
    {"filter", "INPUT", "ipt_input_filter_rules_2"},
    {"filter", "INPUT", "ipt_input_filter_rules_3"},
    {"filter", "ipt_input_filter_rules_2", "ipt_input_filter_rules_all"},
    {"filter", "ipt_input_filter_rules_3", "acl_input_filter_rules_user"},
    {"filter", "ipt_input_filter_rules_3", "input_filter_rules_drop"},
};

} // namespace ctl
