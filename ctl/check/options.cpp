#include "check/options.h"

#include "libsys/ipv4.h"

#include <cstdlib>
#include <cstring>
#include <span>

namespace ctl {

namespace {

enum class kind { number, vlan, mac, address, mask, protocol, words, name };

struct option_rule {
    const char *name;
    kind type;
    int least, most; // of numbers
    effect outside;  // of a number that is none of them, of an address that is none
    const char *does;
    unsigned readers = by_all;
};

constexpr const char *nothing_lost = "it counts for as much as this number does";
constexpr const char *no_route = "the route is recorded, and the kernel does not get it";
constexpr const char *no_gateway = "the WAN gets no default route";
constexpr const char *cut_short = "pppd takes what follows the blank for options";

constexpr option_rule lan_rules[] = {
    {"enable", kind::number, 0, 1, effect::taken, "a LAN counts as enabled in any case"},
    {"ipaddr", kind::address, 0, 0, effect::ends, start_ends},
    {"netmask", kind::mask, 0, 0, effect::ends, start_ends},
    {"vlanid1", kind::vlan, 1, 4094, effect::taken, nothing_lost},
    {"vlanid2", kind::vlan, 1, 4094, effect::taken, nothing_lost},
    {"mac", kind::mac, 0, 0, effect::ends, start_ends},
};

constexpr option_rule wan_rules[] = {
    {"proto", kind::protocol, 0, 0, effect::ends, start_ends},
    {"enable", kind::number, 0, 1, effect::taken, "every number but 0 enables the WAN"},
    {"defrt_pri", kind::number, 10002, 32765, effect::broken, no_gateway},
    {"ipaddr", kind::address, 0, 0, effect::ends, start_ends, by_static},
    {"netmask", kind::mask, 0, 0, effect::ends, start_ends, by_static},
    {"gateway", kind::address, 0, 0, effect::broken, no_gateway, by_static},
    {"username", kind::words, 0, 0, effect::broken, cut_short, by_pppoe},
    {"password", kind::words, 0, 0, effect::broken, cut_short, by_pppoe},
    {"server", kind::words, 0, 0, effect::broken, cut_short, by_pppoe},
    {"vlanid1", kind::vlan, 1, 4094, effect::taken, nothing_lost},
    {"vlanid2", kind::vlan, 1, 4094, effect::taken, nothing_lost},
    {"mac", kind::mac, 0, 0, effect::ends, start_ends},
};

constexpr option_rule route_rules[] = {
    {"enable", kind::number, 0, 1, effect::broken, "only 1 installs the route; it is recorded"},
    {"line", kind::name, 0, 15, effect::broken, no_route},
    {"dstaddr", kind::address, 0, 0, effect::broken, no_route},
    {"netmask", kind::mask, 0, 0, effect::broken, no_route},
    {"gateway", kind::address, 0, 0, effect::broken, no_route},
    {"metric", kind::number, 0, 2147483647, effect::broken, no_route},
};

bool is_decimal(const char *text)
{
    const size_t digits = strspn(text, "0123456789");
    return digits > 0 && digits < 10 && text[digits] == '\0';
}

// Two digits for each byte. The daemon takes others too, but rarely for what is meant.
bool is_mac(const char *text, unsigned (&bytes)[6])
{
    char rest = '\0';
    const bool whole = sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%c", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
                              &bytes[4], &bytes[5], &rest) == 6;
    return whole && strlen(text) == sizeof("00:00:00:00:00:00") - 1;
}

// A MAC of one station, as far as the daemon reads it.
bool is_station(const char *text)
{
    unsigned char first = 0;
    return sscanf(text, "%hhx", &first) != 1 || (first & 1) == 0;
}

// As words are taken apart for a program; false where a quote is left open.
bool quotes_close(const char *text)
{
    char open = '\0';
    for (; *text != '\0'; ++text) {
        if (open == '\0' && (*text == '\'' || *text == '"')) {
            open = *text;
        } else if (open == '"' && *text == '\\' && (text[1] == '"' || text[1] == '\\')) {
            ++text;
        } else if (*text == open) {
            open = '\0';
        }
    }
    return open == '\0';
}

void check_number(const place &where, const option_rule &rule, const char *text, findings &found)
{
    const int number = number_in(text);
    if (!is_decimal(text)) {
        found.add(where, effect::taken, rule.does, "\"%.60s\" is no plain number; it is taken as %d", text,
                  number);
    }
    if (number < rule.least || number > rule.most) {
        found.add(where, rule.outside, rule.does, "%d is not between %d and %d", number, rule.least,
                  rule.most);
    }
}

// 65535 and what is the same in 16 bits is no VLAN. Numbers that are none are found by the walk.
void check_vlan(const place &where, const option_rule &rule, const char *text, findings &found)
{
    const auto number = static_cast<uint16_t>(number_in(text));
    if (!is_decimal(text) || strtol(text, nullptr, 10) > UINT16_MAX) {
        found.add(where, effect::taken, rule.does, "\"%.60s\" is taken as %u", text, number);
    }
}

void check_mac(const place &where, const option_rule &rule, const char *text, findings &found)
{
    unsigned bytes[6] = {};
    unsigned char taken[6] = {};
    sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &taken[0], &taken[1], &taken[2], &taken[3], &taken[4],
           &taken[5]);
    if (!is_station(text)) {
        found.add(where, rule.outside, rule.does, "%.60s is an address of many stations", text);
    } else if (!is_mac(text, bytes)) {
        found.add(where, effect::taken, "the bridge has that MAC",
                  "\"%.60s\" is no MAC; it is taken as %02x:%02x:%02x:%02x:%02x:%02x", text, taken[0],
                  taken[1], taken[2], taken[3], taken[4], taken[5]);
    }
}

void check_words(const place &where, const option_rule &rule, const char *text, findings &found)
{
    if (!quotes_close(text)) {
        found.add(where, effect::ends, start_ends, "a quote is left open");
    } else if (strpbrk(text, " \t\r\n") != nullptr && strpbrk(text, "'\"") == nullptr) {
        found.add(where, rule.outside, rule.does, "there is a blank in it");
    } else if (strpbrk(text, "'\"") != nullptr) {
        found.add(where, effect::taken, "pppd gets it without the quotes", "there are quotes in it");
    }
}

// Whether a text is one of its kind, for options that have no range.
bool fits(kind type, const char *text)
{
    uint8_t prefix = 0;
    const auto number = static_cast<uint16_t>(number_in(text));
    switch (type) {
    case kind::address:
        return is_address(text);
    case kind::mask:
        return libsys::parse_mask(text, &prefix);
    case kind::protocol:
        return protocol_of(text) != 0;
    case kind::mac:
        return is_station(text);
    case kind::words:
        return quotes_close(text);
    case kind::vlan:
        return number == UINT16_MAX || is_vlan(number);
    default:
        return true;
    }
}

void check_text(const place &where, const option_rule &rule, const char *text, findings &found)
{
    switch (rule.type) {
    case kind::number:
        return check_number(where, rule, text, found);
    case kind::vlan:
        return check_vlan(where, rule, text, found);
    case kind::mac:
        return check_mac(where, rule, text, found);
    case kind::words:
        return check_words(where, rule, text, found);
    case kind::address:
        if (!fits(rule.type, text)) {
            found.add(where, rule.outside, rule.does, "\"%.60s\" is no IPv4 address", text);
        }
        break;
    case kind::mask:
        if (!fits(rule.type, text)) {
            found.add(where, rule.outside, rule.does, "\"%.60s\" is no mask", text);
        }
        break;
    case kind::protocol:
        if (!fits(rule.type, text)) {
            found.add(where, rule.outside, rule.does, "\"%.60s\" is neither static, dhcp nor pppoe", text);
        }
        break;
    case kind::name:
        if (strncmp(text, "auto", 4) != 0 && (*text == '\0' || strlen(text) > size_t(rule.most))) {
            found.add(where, rule.outside, rule.does, "\"%.60s\" can be no device", text);
        }
        break;
    }
}

// A mask beside the address 0.0.0.0 is not looked at.
bool is_looked_at(const char *address, const option_rule &rule)
{
    return rule.type != kind::mask || rule.outside != effect::ends || address == nullptr ||
           strcmp(address, "0.0.0.0") != 0;
}

const option_rule *rule_of(std::span<const option_rule> rules, const char *option)
{
    for (const option_rule &rule : rules) {
        if (strcmp(rule.name, option) == 0) {
            return &rule;
        }
    }
    return nullptr;
}

unsigned reader_of_wan(const char *proto)
{
    const unsigned reader = proto != nullptr ? protocol_of(proto) : unsigned{by_static};
    return reader != 0 ? reader : unsigned{by_all};
}

void check_options(const section &which, std::span<const option_rule> rules, unsigned reader, findings &found)
{
    uci_element *element = nullptr;
    uci_foreach_element(&which.parsed->options, element)
    {
        const uci_option *option = uci_to_option(element);
        const place where = {which.file, which.name, element->name};
        const option_rule *rule = rule_of(rules, element->name);
        if (rule == nullptr) {
            found.add(where, effect::ignored, "the option is ignored", "there is no such option");
        } else if (option->type != UCI_TYPE_STRING) {
            found.add(where, effect::ignored, "the option counts as missing", "it is a list");
        } else if ((rule->readers & reader) == 0) {
            found.add(where, effect::ignored, "the option is ignored", "the protocol has no use for it");
        } else if (is_looked_at(which.text("ipaddr"), *rule)) {
            check_text(where, *rule, option->v.string, found);
        }
    }
}

} // namespace

unsigned protocol_of(const char *text)
{
    // The daemon compares so many letters.
    return strncmp(text, "dhcp", 4) == 0     ? by_dhcp
           : strncmp(text, "static", 5) == 0 ? by_static
           : strncmp(text, "pppoe", 5) == 0  ? by_pppoe
                                             : 0U;
}

int number_in(const char *text)
{
    return atoi(text); // NOLINT(cert-err34-c): the question is what the daemon makes of it
}

bool is_vlan(unsigned number)
{
    return number >= 1 && number <= 4094;
}

bool ends_start(const char *option, const char *text, const beside &others, bool of_wan)
{
    const option_rule *rule = of_wan ? rule_of(wan_rules, option) : rule_of(lan_rules, option);
    if (rule == nullptr || (of_wan && (rule->readers & reader_of_wan(others.proto)) == 0) ||
        !is_looked_at(others.ipaddr, *rule) ||
        (strcmp(option, "vlanid2") == 0 && others.vlanid1 == nullptr)) {
        return false;
    }
    const bool may_end =
        rule->outside == effect::ends || rule->type == kind::vlan || rule->type == kind::words;
    return may_end && !fits(rule->type, text);
}

bool is_address(const char *text)
{
    uint32_t number = 0;
    return libsys::parse_ipv4(text, &number);
}

void check_lan_options(const section &which, findings &found)
{
    check_options(which, lan_rules, by_all, found);
}

void check_wan_options(const section &which, findings &found)
{
    check_options(which, wan_rules, reader_of_wan(which.text("proto")), found);
}

void check_route_options(const section &which, findings &found)
{
    check_options(which, route_rules, by_all, found);
    const char *enable = which.text("enable");
    if (enable == nullptr || number_in(enable) != 1) {
        return;
    }
    for (const char *needed : {"line", "dstaddr", "netmask", "gateway"}) {
        if (which.text(needed) == nullptr) {
            found.add({which.file, which.name, needed}, effect::broken, no_route, "it is missing");
        }
    }
    uint32_t network = 0;
    uint8_t prefix = 0;
    if (libsys::parse_ipv4(which.text("dstaddr"), &network) && which.text("netmask") != nullptr &&
        libsys::parse_mask(which.text("netmask"), &prefix) && (network & ~libsys::mask_of(prefix)) != 0) {
        found.add({which.file, which.name, "dstaddr"}, effect::broken, no_route,
                  "it has bits outside of the mask");
    }
}

} // namespace ctl
