#include "rule.h"

#include "exports.h"
#include "internal.h"
#include "netlink.h"
#include "rule_late.h"

#include <cstdlib>
#include <cstring>
#include <linux/fib_rules.h>

namespace libsys {

namespace {

// The kernel's own rules stand at the ends of the list.
constexpr uint32_t lowest_free_preference = 1;
constexpr uint32_t highest_free_preference = 32765;
constexpr uint32_t suppress_nothing = UINT32_MAX;

struct found_rule {
    policy_rule rule;
    bool plain; // looks a table up for all traffic
};

// Whether anything narrows the rule down to some of the traffic.
bool has_selector(const nlmsghdr &message, const fib_rule_hdr &body)
{
    constexpr uint16_t selectors[] = {FRA_SRC,         FRA_DST,        FRA_IIFNAME,  FRA_OIFNAME,
                                      FRA_FWMARK,      FRA_TUN_ID,     FRA_IP_PROTO, FRA_UID_RANGE,
                                      FRA_SPORT_RANGE, FRA_DPORT_RANGE};
    for (uint16_t type : selectors) {
        if (netlink::find(message, sizeof(body), type) != nullptr) {
            return true;
        }
    }
    return body.src_len != 0 || body.dst_len != 0 || body.tos != 0 || ((body.flags & FIB_RULE_INVERT) != 0);
}

template <typename Visit> int each_rule(Visit visit)
{
    netlink::request request(RTM_GETRULE, NLM_F_DUMP);
    request.body<fib_rule_hdr>()->family = AF_INET;
    netlink::reply answer;
    if (int error = netlink::exchange(request, &answer)) {
        return error;
    }
    answer.each<fib_rule_hdr>(RTM_NEWRULE, [&](const nlmsghdr &message, const fib_rule_hdr &body) {
        auto number = [&](uint16_t type, uint32_t absent) {
            return netlink::value_u32(netlink::find(message, sizeof(body), type), absent);
        };
        if (body.family == AF_INET) {
            found_rule found = {};
            found.rule.preference = number(FRA_PRIORITY, 0);
            found.rule.table = number(FRA_TABLE, body.table);
            found.rule.suppress_prefix = static_cast<int>(number(FRA_SUPPRESS_PREFIXLEN, suppress_nothing));
            found.plain = body.action == FR_ACT_TO_TBL && !has_selector(message, body);
            visit(found);
        }
    });
    return 0;
}

int add_rule(const policy_rule &rule)
{
    netlink::request request(RTM_NEWRULE, NLM_F_CREATE | NLM_F_EXCL);
    auto *body = request.body<fib_rule_hdr>();
    body->family = AF_INET;
    body->table = RT_TABLE_UNSPEC;
    body->action = FR_ACT_TO_TBL;
    nlmsghdr *header = request.header();
    mnl_attr_put_u32(header, FRA_PRIORITY, rule.preference);
    mnl_attr_put_u32(header, FRA_TABLE, rule.table);
    if (rule.suppress_prefix != no_suppression) {
        mnl_attr_put_u32(header, FRA_SUPPRESS_PREFIXLEN, static_cast<uint32_t>(rule.suppress_prefix));
    }
    mnl_attr_put_u8(header, FRA_PROTOCOL, netlink::own_protocol);
    return netlink::exchange(request);
}

// Takes the next word of a text; false at its end or when the word is too long.
bool next_word(const char **text, char *word, size_t size)
{
    const char *start = *text + strspn(*text, " \t");
    size_t length = strcspn(start, " \t");
    if (length == 0 || length >= size) {
        return false;
    }
    memcpy(word, start, length);
    word[length] = '\0';
    *text = start + length;
    return true;
}

bool parse_number(const char *word, uint32_t highest, uint32_t *out)
{
    char *end = nullptr;
    errno = 0;
    unsigned long value = strtoul(word, &end, 10);
    if (word[0] < '0' || word[0] > '9' || *end || errno || value > highest) {
        return false;
    }
    *out = static_cast<uint32_t>(value);
    return true;
}

bool parse_table(const char *word, uint32_t *out)
{
    constexpr struct {
        const char *name;
        uint32_t number;
    } names[] = {{"local", RT_TABLE_LOCAL}, {"main", RT_TABLE_MAIN}, {"default", RT_TABLE_DEFAULT}};
    for (const auto &entry : names) {
        if (!strcmp(word, entry.name)) {
            *out = entry.number;
            return true;
        }
    }
    return parse_number(word, UINT32_MAX, out) && *out != RT_TABLE_UNSPEC;
}

// "lookup TABLE [suppress_prefixlength N]"; "table" means "lookup". Nothing is skipped over silently.
bool parse_selector(const char *text, policy_rule *out)
{
    char word[32];
    bool table_seen = false;
    if (text == nullptr) {
        return false;
    }
    while (next_word(&text, word, sizeof(word))) {
        uint32_t number = 0;
        if (!strcmp(word, "lookup") || !strcmp(word, "table")) {
            if (!next_word(&text, word, sizeof(word)) || !parse_table(word, &out->table)) {
                return false;
            }
            table_seen = true;
        } else if (!strcmp(word, "suppress_prefixlength")) {
            if (!next_word(&text, word, sizeof(word)) || !parse_number(word, 32, &number)) {
                return false;
            }
            out->suppress_prefix = static_cast<int>(number);
        } else {
            return false;
        }
    }
    return table_seen && text[strspn(text, " \t")] == '\0';
}

bool free_preference(uint32_t preference)
{
    return preference >= lowest_free_preference && preference <= highest_free_preference;
}

int remove_late(uint32_t preference, uint32_t)
{
    return remove_rules(preference);
}

} // namespace

int look_up_rule(const policy_rule &wanted, rule_state *state)
{
    *state = rule_state::absent;
    return each_rule([&](const found_rule &found) {
        if (found.rule.preference == wanted.preference) {
            bool same = *state == rule_state::absent && found.plain && found.rule.table == wanted.table &&
                        found.rule.suppress_prefix == wanted.suppress_prefix;
            *state = same ? rule_state::same : rule_state::different;
        }
    });
}

int ensure_rule(const policy_rule &wanted)
{
    rule_state state = rule_state::absent;
    if (int error = look_up_rule(wanted, &state)) {
        return error;
    }
    if (state == rule_state::different) {
        if (!rule_removal_is_put_off(wanted.preference)) {
            return EEXIST;
        }
        if (int error = remove_rules(wanted.preference)) {
            return error;
        }
    }
    const int error = state == rule_state::same ? 0 : add_rule(wanted);
    if (!error) {
        call_rule_removal_off(wanted.preference);
    }
    return error;
}

int remove_rules(uint32_t preference)
{
    for (;;) {
        netlink::request request(RTM_DELRULE, 0);
        request.body<fib_rule_hdr>()->family = AF_INET;
        mnl_attr_put_u32(request.header(), FRA_PRIORITY, preference);
        if (int error = netlink::exchange(request)) {
            return error == ENOENT ? 0 : error;
        }
    }
}

int any_self_named_rule(uint32_t lowest, uint32_t highest, bool *found)
{
    *found = false;
    return each_rule([&](const found_rule &each) {
        *found = *found || (each.plain && each.rule.preference >= lowest && each.rule.preference <= highest &&
                            each.rule.table == each.rule.preference);
    });
}

} // namespace libsys

using namespace libsys;

int netlib_ip_rule_add(uint32_t number, const char *selector)
{
    policy_rule wanted = {number, RT_TABLE_UNSPEC};
    int error = free_preference(number) && parse_selector(selector, &wanted) ? ensure_rule(wanted) : EINVAL;
    return error ? fail(error, __func__, "%u, %s", number, shown(selector)) : 0;
}

int netlib_ip_rule_del(uint32_t number)
{
    int error = free_preference(number) ? 0 : EINVAL;
    if (!error && !put_rule_removal_off(number, 0, remove_late)) {
        error = remove_rules(number);
    }
    return error ? fail(error, __func__, "%u", number) : 0;
}
