#include "firewall/chains.h"

#include "core/log.h"
#include "core/result.h"
#include "core/text.h"
#include "platform/command.h"

#include <initializer_list>

namespace {

// The doubled blank is part of the rule's text.
constexpr const char *established_accept = "-m conntrack  --ctstate RELATED,ESTABLISHED -j ACCEPT";
constexpr const char *established = "RELATED,ESTABLISHED";

constexpr const char *drop_chain = "input_filter_rules_drop";
constexpr const char *input_all_chain = "ipt_input_filter_rules_all";
constexpr const char *mss_chain = "ipt_fwd_mangle_rules_def";
constexpr const char *masquerade_chain = "intf_sip_mesquerade";

// A user chain is created by the chain call, or by a whole command line.
enum class creation { call, command };

enum class step_kind { accept_established, hook, run };

struct skeleton_step {
    step_kind kind;
    const char *table;
    const char *parent; // the chain that gets the rule
    const char *chain;  // hook: the user chain
    creation how;
    void (*report_create)(); // null: a failure is not reported
    void (*report_append)();
    int (*run)();
};

constexpr skeleton_step accept(const char *table, const char *chain)
{
    return {step_kind::accept_established, table, chain, nullptr, creation::call, nullptr, nullptr, nullptr};
}

constexpr skeleton_step hook(const char *table, const char *parent, const char *chain,
                             creation how = creation::call, void (*report_create)() = nullptr,
                             void (*report_append)() = nullptr)
{
    return {step_kind::hook, table, parent, chain, how, report_create, report_append, nullptr};
}

constexpr skeleton_step run(int (*function)())
{
    return {step_kind::run, nullptr, nullptr, nullptr, creation::call, nullptr, nullptr, function};
}

int mss_clamp_init()
{
    iptlib_rules_flush("mangle", mss_chain);
    return iptlib_rule_append("mangle", mss_chain,
                              "-p tcp --tcp-flags SYN,RST SYN -j TCPMSS --clamp-mss-to-pmtu") == 0
               ? rv_ok
               : rv_iptables;
}

constexpr skeleton_step skeleton[] = {
    accept("mangle", "PREROUTING"),
    hook("mangle", "PREROUTING", "ipt_prert_mangle_rules_1"),
    hook("mangle", "PREROUTING", "ipt_prert_mangle_rules_2"),
    hook("mangle", "PREROUTING", "ipt_prert_mangle_rules_3"),
    hook(
        "mangle", "ipt_prert_mangle_rules_1", "urlctrl_prert_mangle_rule", creation::command,
        [] { NET_ERROR("new url control chain error\n"); },
        [] { NET_ERROR("append url control chain error\n"); }),
    hook("mangle", "ipt_prert_mangle_rules_1", "wanload_prert_mangle_rule", creation::command),
    hook("nat", "PREROUTING", "ipt_prert_nat_rules_1"),
    hook("nat", "PREROUTING", "ipt_prert_nat_rules_2"),
    hook("nat", "PREROUTING", "ipt_prert_nat_rules_3"),
    hook("nat", "ipt_prert_nat_rules_1", "pmap_rules_user"),
    accept("filter", "FORWARD"),
    hook("filter", "FORWARD", "ipt_fwd_filter_rules_1"),
    hook("filter", "FORWARD", "ipt_fwd_filter_rules_2"),
    hook("filter", "FORWARD", "ipt_fwd_filter_rules_3"),
    hook("filter", "ipt_fwd_filter_rules_2", "ipt_fwd_filter_rules_all"),
    hook("filter", "ipt_fwd_filter_rules_2", "ipt_fwd_filter_mac"),
    hook("filter", "ipt_fwd_filter_rules_2", "acl_fwd_filter_rules_user"),
    accept("mangle", "FORWARD"),
    hook("mangle", "FORWARD", "ipt_fwd_mangle_rules_1"),
    hook("mangle", "ipt_fwd_mangle_rules_1", mss_chain),
    run(mss_clamp_init),
    hook("filter", "INPUT", "ipt_input_filter_rules_1"),
    hook("filter", "INPUT", "ipt_input_filter_rules_2"),
    hook("filter", "INPUT", "ipt_input_filter_rules_3"),
    hook("filter", "ipt_input_filter_rules_2", input_all_chain),
    hook("filter", "ipt_input_filter_rules_3", "acl_input_filter_rules_user"),
    hook("filter", "ipt_input_filter_rules_3", drop_chain),
    run(netpre_ipt_input_all_init),
    run(netpre_input_drop_init),
    hook("nat", "POSTROUTING", "ipt_postrt_nat_rules_1", creation::command),
    hook("nat", "POSTROUTING", "ipt_postrt_nat_rules_2", creation::command),
    hook("nat", "POSTROUTING", "ipt_postrt_nat_rules_3", creation::command),
    hook("mangle", "POSTROUTING", "ipt_postrt_mangle_rules_1", creation::command),
    hook("nat", "ipt_postrt_nat_rules_1", masquerade_chain, creation::command),
    run(netpre_masquerade_init),
};

int accept_established(const skeleton_step &step)
{
    if (iptlib_rule_is_exist(step.table, step.parent, established) != 0) {
        return rv_ok;
    }
    return iptlib_rule_append(step.table, step.parent, established_accept) == 0 ? rv_ok : rv_iptables;
}

int chain_create(const skeleton_step &step)
{
    return step.how == creation::call
               ? iptlib_chain_new(step.table, step.chain)
               : cmdlib_do_iptables_cmd("iptables -t %s -N %s", step.table, step.chain);
}

int jump_append(const skeleton_step &step)
{
    if (iptlib_rule_is_exist(step.table, step.parent, step.chain) != 0) {
        return rv_ok;
    }
    char jump[64];
    text_format(jump, sizeof(jump), "-j %s", step.chain);
    return iptlib_rule_append(step.table, step.parent, jump);
}

// Only a chain just created is hooked; one that exists is left alone, and so is its parent.
int chain_hook(const skeleton_step &step)
{
    if (iptlib_chain_is_exist(step.table, step.chain) != 0) {
        return rv_ok;
    }
    if (chain_create(step) != 0) {
        if (step.report_create != nullptr) {
            step.report_create();
        }
        return rv_iptables;
    }
    if (jump_append(step) != 0) {
        if (step.report_append != nullptr) {
            step.report_append();
        }
        return rv_iptables;
    }
    return rv_ok;
}

int step_lay(const skeleton_step &step)
{
    switch (step.kind) {
    case step_kind::accept_established:
        return accept_established(step);
    case step_kind::hook:
        return chain_hook(step);
    default:
        return step.run();
    }
}

int drop_rule_result(int rv, const char *pattern)
{
    if (rv != 0) {
        NET_ERROR("iptables snat add error,out=%s\r\n", pattern);
        return rv_iptables;
    }
    return rv_ok;
}

} // namespace

int netpre_init()
{
    for (const skeleton_step &step : skeleton) {
        if (const int rv = step_lay(step); rv != rv_ok) {
            return rv;
        }
    }
    return rv_ok;
}

int netpre_ipt_input_all_init()
{
    iptlib_rules_flush("filter", input_all_chain);
    if (const int rv = iptlib_rule_append("filter", input_all_chain, established_accept); rv != 0) {
        NET_ERROR("%s %d rv=%d\n", __func__, 459, rv);
        return rv_iptables;
    }
    if (const int rv = iptlib_rule_append("filter", input_all_chain, "-p tcp --dport 7547 -j ACCEPT");
        rv != 0) {
        NET_ERROR("%s %d rv=%d\n", __func__, 466, rv);
        return rv_iptables;
    }
    return rv_ok;
}

int netpre_input_drop_rule(const char *pattern, int add)
{
    const int rv = add != 0 ? cmdlib_do_iptables_cmd("iptables -A %s -j DROP -i %s", drop_chain, pattern)
                            : cmdlib_do_iptables_cmd("iptables -D %s -j DROP -i %s", drop_chain, pattern);
    return drop_rule_result(rv, pattern);
}

int netpre_ssh_drop_rule(const char *pattern, int add)
{
    const int rv =
        add != 0
            ? cmdlib_do_iptables_cmd("iptables -A %s -p tcp --dport 22 -j DROP -i %s", drop_chain, pattern)
            : cmdlib_do_iptables_cmd("iptables -D %s -p tcp --dport 22 -j DROP -i %s", drop_chain, pattern);
    return drop_rule_result(rv, pattern);
}

int netpre_input_drop_init()
{
    iptlib_rules_flush("filter", drop_chain);
    for (const char *pattern : {"wan+", "default_br+", "usb+"}) {
        if (const int rv = netpre_input_drop_rule(pattern, 1); rv != rv_ok) {
            return rv;
        }
    }
    return rv_ok;
}

int netpre_masquerade_init()
{
    iptlib_rules_flush("nat", masquerade_chain);
    if (cmdlib_do_iptables_cmd("iptables -t nat -A %s -j MASQUERADE", masquerade_chain) != 0) {
        NET_ERROR("iptables sip mesquerade init error\r\n");
        return rv_iptables;
    }
    return rv_ok;
}
