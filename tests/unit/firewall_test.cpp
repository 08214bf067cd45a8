// The skeleton of iptables chains.

#include "daemon_test.h"
#include "firewall/chains.h"

namespace unit {
namespace {

const std::string accept_rule = "-m conntrack  --ctstate RELATED,ESTABLISHED -j ACCEPT";

std::string call_text(const std::string &name, std::initializer_list<std::string> texts)
{
    std::string out = name + "(";
    const char *between = "";
    for (const std::string &text : texts) {
        out += between + quote(text);
        between = ", ";
    }
    return out + ")";
}

// What a first start asks and does, written down by hand, step by step.
class Expected {
public:
    void accept(const std::string &table, const std::string &chain)
    {
        line("iptlib_rule_is_exist", {table, chain, "RELATED,ESTABLISHED"});
        line("iptlib_rule_append", {table, chain, accept_rule});
    }
    void hook(const std::string &table, const std::string &parent, const std::string &chain)
    {
        line("iptlib_chain_is_exist", {table, chain});
        line("iptlib_chain_new", {table, chain});
        jump(table, parent, chain);
    }
    void hook_by_command(const std::string &table, const std::string &parent, const std::string &chain)
    {
        line("iptlib_chain_is_exist", {table, chain});
        line("cmdlib_do_iptables_cmd", {"iptables -t " + table + " -N " + chain});
        jump(table, parent, chain);
    }
    void line(const std::string &name, std::initializer_list<std::string> texts)
    {
        lines.push_back(call_text(name, texts));
    }

    std::vector<std::string> lines;

private:
    void jump(const std::string &table, const std::string &parent, const std::string &chain)
    {
        line("iptlib_rule_is_exist", {table, parent, chain});
        line("iptlib_rule_append", {table, parent, "-j " + chain});
    }
};

void refill_mss(Expected &expected)
{
    expected.line("iptlib_rules_flush", {"mangle", "ipt_fwd_mangle_rules_def"});
    expected.line("iptlib_rule_append", {"mangle", "ipt_fwd_mangle_rules_def",
                                         "-p tcp --tcp-flags SYN,RST SYN -j TCPMSS --clamp-mss-to-pmtu"});
}

void refill_input(Expected &expected)
{
    expected.line("iptlib_rules_flush", {"filter", "ipt_input_filter_rules_all"});
    expected.line("iptlib_rule_append", {"filter", "ipt_input_filter_rules_all", accept_rule});
    expected.line("iptlib_rule_append",
                  {"filter", "ipt_input_filter_rules_all", "-p tcp --dport 7547 -j ACCEPT"});
}

void refill_drop(Expected &expected)
{
    expected.line("iptlib_rules_flush", {"filter", "input_filter_rules_drop"});
    for (const char *pattern : {"wan+", "default_br+", "usb+"}) {
        expected.line("cmdlib_do_iptables_cmd",
                      {std::string{"iptables -A input_filter_rules_drop -j DROP -i "} + pattern});
    }
}

void refill_masquerade(Expected &expected)
{
    expected.line("iptlib_rules_flush", {"nat", "intf_sip_mesquerade"});
    expected.line("cmdlib_do_iptables_cmd", {"iptables -t nat -A intf_sip_mesquerade -j MASQUERADE"});
}

std::vector<std::string> first_start()
{
    Expected expected;
    expected.accept("mangle", "PREROUTING");
    expected.hook("mangle", "PREROUTING", "ipt_prert_mangle_rules_1");
    expected.hook("mangle", "PREROUTING", "ipt_prert_mangle_rules_2");
    expected.hook("mangle", "PREROUTING", "ipt_prert_mangle_rules_3");
    expected.hook_by_command("mangle", "ipt_prert_mangle_rules_1", "urlctrl_prert_mangle_rule");
    expected.hook_by_command("mangle", "ipt_prert_mangle_rules_1", "wanload_prert_mangle_rule");
    expected.hook("nat", "PREROUTING", "ipt_prert_nat_rules_1");
    expected.hook("nat", "PREROUTING", "ipt_prert_nat_rules_2");
    expected.hook("nat", "PREROUTING", "ipt_prert_nat_rules_3");
    expected.hook("nat", "ipt_prert_nat_rules_1", "pmap_rules_user");
    expected.accept("filter", "FORWARD");
    expected.hook("filter", "FORWARD", "ipt_fwd_filter_rules_1");
    expected.hook("filter", "FORWARD", "ipt_fwd_filter_rules_2");
    expected.hook("filter", "FORWARD", "ipt_fwd_filter_rules_3");
    expected.hook("filter", "ipt_fwd_filter_rules_2", "ipt_fwd_filter_rules_all");
    expected.hook("filter", "ipt_fwd_filter_rules_2", "ipt_fwd_filter_mac");
    expected.hook("filter", "ipt_fwd_filter_rules_2", "acl_fwd_filter_rules_user");
    expected.accept("mangle", "FORWARD");
    expected.hook("mangle", "FORWARD", "ipt_fwd_mangle_rules_1");
    expected.hook("mangle", "ipt_fwd_mangle_rules_1", "ipt_fwd_mangle_rules_def");
    refill_mss(expected);
    expected.hook("filter", "INPUT", "ipt_input_filter_rules_1");
    expected.hook("filter", "INPUT", "ipt_input_filter_rules_2");
    expected.hook("filter", "INPUT", "ipt_input_filter_rules_3");
    expected.hook("filter", "ipt_input_filter_rules_2", "ipt_input_filter_rules_all");
    expected.hook("filter", "ipt_input_filter_rules_3", "acl_input_filter_rules_user");
    expected.hook("filter", "ipt_input_filter_rules_3", "input_filter_rules_drop");
    refill_input(expected);
    refill_drop(expected);
    expected.hook_by_command("nat", "POSTROUTING", "ipt_postrt_nat_rules_1");
    expected.hook_by_command("nat", "POSTROUTING", "ipt_postrt_nat_rules_2");
    expected.hook_by_command("nat", "POSTROUTING", "ipt_postrt_nat_rules_3");
    expected.hook_by_command("mangle", "POSTROUTING", "ipt_postrt_mangle_rules_1");
    expected.hook_by_command("nat", "ipt_postrt_nat_rules_1", "intf_sip_mesquerade");
    refill_masquerade(expected);
    return expected.lines;
}

bool is_question(const std::string &line)
{
    return line.find("_is_exist(") != std::string::npos;
}

class Firewall : public DaemonTest {
protected:
    static void every_chain_exists()
    {
        for (const std::string &line : first_start()) {
            if (line.starts_with("iptlib_chain_is_exist")) {
                const size_t table = line.find('\'') + 1;
                const size_t table_end = line.find('\'', table);
                const size_t chain = line.find('\'', table_end + 1) + 1;
                world.chains.insert(line.substr(table, table_end - table) + " " +
                                    line.substr(chain, line.find('\'', chain) - chain));
            }
        }
    }
};

TEST_F(Firewall, FirstStart)
{
    EXPECT_EQ(netpre_init(), 0);
    EXPECT_EQ(join(trace_take()), join(first_start()));
}

TEST_F(Firewall, AgainOnlyFourChainsChange)
{
    every_chain_exists();
    EXPECT_EQ(world.chains.size(), 28U);
    for (const char *chain : {"mangle PREROUTING", "filter FORWARD", "mangle FORWARD"}) {
        world.rules[chain] = {accept_rule};
    }
    EXPECT_EQ(netpre_init(), 0);
    std::vector<std::string> changes = trace_take();
    std::erase_if(changes, is_question);
    Expected expected;
    refill_mss(expected);
    refill_input(expected);
    refill_drop(expected);
    refill_masquerade(expected);
    EXPECT_EQ(join(changes), join(expected.lines));
}

// A jump that was deleted by hand is not restored: of a chain that exists nothing more is asked.
TEST_F(Firewall, AChainThatExistsIsNotHooked)
{
    world.chains = {"filter ipt_fwd_filter_rules_1", "nat ipt_postrt_nat_rules_2"};
    EXPECT_EQ(netpre_init(), 0);
    std::vector<std::string> expected = first_start();
    std::erase_if(expected, [](const std::string &line) {
        return !line.starts_with("iptlib_chain_is_exist") &&
               (line.find("ipt_fwd_filter_rules_1") != std::string::npos ||
                line.find("ipt_postrt_nat_rules_2") != std::string::npos);
    });
    EXPECT_EQ(join(trace_take()), join(expected));
}

TEST_F(Firewall, AJumpThatIsThereIsNotAddedAgain)
{
    world.rules["nat ipt_postrt_nat_rules_1"] = {"-j intf_sip_mesquerade"};
    world.rules["filter INPUT"] = {"-s 1.2.3.4 -j ipt_input_filter_rules_3"};
    EXPECT_EQ(netpre_init(), 0);
    std::vector<std::string> expected = first_start();
    std::erase_if(expected, [](const std::string &line) {
        return line == call_text("iptlib_rule_append",
                                 {"nat", "ipt_postrt_nat_rules_1", "-j intf_sip_mesquerade"}) ||
               line == call_text("iptlib_rule_append", {"filter", "INPUT", "-j ipt_input_filter_rules_3"});
    });
    EXPECT_EQ(join(trace_take()), join(expected));
}

// The report of a failing step, where it has one.
std::vector<Lines> report_of(const std::string &line)
{
    if (line.find("-N urlctrl") != std::string::npos) {
        return {error("new url control chain error\n")};
    }
    if (line.find("-j urlctrl") != std::string::npos) {
        return {error("append url control chain error\n")};
    }
    if (line.starts_with("iptlib_rule_append('filter', 'ipt_input_filter_rules_all', '-m")) {
        return {error("netpre_ipt_input_all_init 459 rv=-3\n")};
    }
    if (line.starts_with("iptlib_rule_append('filter', 'ipt_input_filter_rules_all', '-p")) {
        return {error("netpre_ipt_input_all_init 466 rv=-3\n")};
    }
    const std::string drop = "cmdlib_do_iptables_cmd('iptables -A input_filter_rules_drop -j DROP -i ";
    if (line.starts_with(drop)) {
        const std::string pattern = line.substr(drop.size(), line.size() - drop.size() - 2);
        return {error("iptables snat add error,out=" + pattern + "\r\n")};
    }
    if (line.find("MASQUERADE") != std::string::npos) {
        return {error("iptables sip mesquerade init error\r\n")};
    }
    return {};
}

TEST_F(Firewall, TheFirstFailureEndsIt)
{
    const std::vector<std::string> all = first_start();
    unsigned failures = 0;
    for (size_t failing = 0; failing < all.size(); failing++) {
        if (is_question(all[failing]) || all[failing].starts_with("iptlib_rules_flush")) {
            continue;
        }
        answers_forget();
        answer(all[failing], -3);
        EXPECT_EQ(netpre_init(), -10) << all[failing];
        std::vector<std::string> expected{all.begin(),
                                          all.begin() + static_cast<std::ptrdiff_t>(failing) + 1};
        for (const Lines &report : report_of(all[failing])) {
            expected.insert(expected.end(), report.all().begin(), report.all().end());
        }
        EXPECT_EQ(join(trace_take()), join(expected));
        failures++;
    }
    // 28 chains made and hooked, 3 accept rules, and the rules of the chains that are refilled.
    EXPECT_EQ(failures, 28U * 2 + 3 + 1 + 2 + 3 + 1);
}

TEST_F(Firewall, FlushesMayFail)
{
    fail("iptlib_rules_flush(");
    EXPECT_EQ(netpre_init(), 0);
    EXPECT_EQ(join(trace_take()), join(first_start()));
}

struct DropRule {
    int (*rule)(const char *, int);
    int add;
    const char *command;
};

TEST_F(Firewall, DropRules)
{
    const DropRule cases[] = {
        {netpre_input_drop_rule, 1, "iptables -A input_filter_rules_drop -j DROP -i usb%d+"},
        {netpre_input_drop_rule, 0, "iptables -D input_filter_rules_drop -j DROP -i usb%d+"},
        {netpre_ssh_drop_rule, 1, "iptables -A input_filter_rules_drop -p tcp --dport 22 -j DROP -i usb%d+"},
        {netpre_ssh_drop_rule, 0, "iptables -D input_filter_rules_drop -p tcp --dport 22 -j DROP -i usb%d+"},
        {netpre_ssh_drop_rule, 2, "iptables -A input_filter_rules_drop -p tcp --dport 22 -j DROP -i usb%d+"},
    };
    for (const DropRule &drop : cases) {
        const std::string line = call_text("cmdlib_do_iptables_cmd", {drop.command});
        answers_forget();
        EXPECT_EQ(drop.rule("usb%d+", drop.add), 0);
        expect_trace({line});
        answer(line, 2);
        EXPECT_EQ(drop.rule("usb%d+", drop.add), -10);
        expect_trace({line, error("iptables snat add error,out=usb%d+\r\n")});
    }
}

} // namespace
} // namespace unit
