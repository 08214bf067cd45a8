#include "generator.h"

namespace model {

std::string Generator::any(std::initializer_list<const char *> of)
{
    return of.begin()[pick(static_cast<unsigned>(of.size()))];
}

std::string Generator::any_name(const Oracle &oracle)
{
    // An old friend more often than a stranger.
    std::vector<std::string> known;
    for (const Port &port : oracle.ports) {
        for (const Interface &entry : port.interfaces) {
            known.push_back(entry.name);
        }
    }
    if (!known.empty() && !chance(3)) {
        return known[pick(static_cast<unsigned>(known.size()))];
    }
    return new_name();
}

std::string Generator::new_name()
{
    if (chance(15)) {
        return any({"lan", "LAN1", "lan10", "wan0", "br0", "lan9", "wan99", "lan2_a_longer_name"});
    }
    const std::string kind = chance(3) ? "wan" : "lan";
    return kind + std::to_string(1 + pick(kind == "lan" ? 4 : 3)) + any({"", ".1", "_b", "_default"});
}

std::string Generator::any_port_name()
{
    return chance(12) ? new_name() : (chance(3) ? "wan" : "lan") + std::to_string(1 + pick(4));
}

void Generator::maybe(Fields &fields, const std::string &name, const std::string &value, unsigned of)
{
    if (!chance(of)) {
        fields[name] = value;
    }
}

void Generator::add_vlans(Fields &fields)
{
    if (chance(2)) {
        return;
    }
    fields["vlanid1"] = any({"100", "100", "200", "300", "400", "4091", "4093", "0", "5000", "65535"});
    if (chance(3)) {
        fields["vlanid2"] = any({"1", "2", "65535"});
    }
}

void Generator::add_addresses(Fields &fields)
{
    maybe(fields, "ipaddr", any({"192.168.1.1", "10.0.0.2", "172.16.5.4", "0.0.0.0"}));
    maybe(fields, "netmask", any({"255.255.255.0", "255.0.0.0", "0.0.0.0"}));
    maybe(fields, "gateway", any({"192.168.1.254", "10.0.0.1", "0.0.0.0"}), 4);
    maybe(fields, "username", any({"user", "other"}), 5);
    maybe(fields, "password", any({"word", "secret"}), 5);
    maybe(fields, "server", "isp", 2);
}

Fields Generator::any_fields()
{
    Fields fields;
    maybe(fields, "proto", any({"static", "static", "dhcp", "dhcp", "pppoe", "statix", "dhcpv6", "l2tp"}));
    maybe(fields, "defrt_pri", any({"20001", "20002", "10002"}));
    maybe(fields, "mac", "02:aa:bb:cc:dd:0" + std::to_string(pick(10)), 3);
    add_vlans(fields);
    add_addresses(fields);
    return fields;
}

std::vector<std::string> Generator::any_names(const Oracle &oracle)
{
    std::vector<std::string> names;
    for (unsigned i = 0, count = pick(4); i < count; i++) {
        names.push_back(any_name(oracle));
    }
    return names;
}

std::vector<Section> Generator::any_sections(const std::string &kind)
{
    std::vector<Section> sections;
    for (unsigned i = 0, count = pick(4); i < count; i++) {
        Section one{chance(12) ? "guest" : kind + std::to_string(1 + pick(3)) + any({"", ".1", "_default"}),
                    any_fields()};
        maybe(one.fields, "enable", any({"0", "1", "1"}));
        sections.push_back(one);
    }
    return sections;
}

Fields Generator::config_fields(const Oracle &oracle)
{
    Fields fields = any_fields();
    maybe(fields, "old_intf", any_name(oracle), 40);
    const auto old = fields.find("old_intf");
    const std::string same = old == fields.end() ? "lan1" : old->second;
    maybe(fields, "intf", chance(2) ? any_name(oracle) : same, 40);
    return fields;
}

Action Generator::next(const Oracle &oracle)
{
    using enum Action::Kind;
    const unsigned what = pick(100);
    Action out{what < 30   ? add
               : what < 45 ? del
               : what < 60 ? config
               : what < 68 ? enable
               : what < 76 ? port_add
               : what < 82 ? port_del
               : what < 97 ? link
                           : restart,
               {},
               {},
               0,
               false,
               {},
               {}};
    switch (out.kind) {
    case add:
        out.fields = any_fields();
        maybe(out.fields, "intf", chance(6) ? any_name(oracle) : new_name(), 40);
        break;
    case config:
        out.fields = config_fields(oracle);
        break;
    case del:
        out.names = any_names(oracle);
        break;
    case enable:
        out.names = any_names(oracle);
        out.on = chance(2);
        break;
    case port_add:
    case port_del:
        out.names = {any_port_name()};
        break;
    case link:
        out.port = pick(chance(20) ? 8 : 5);
        out.on = chance(2);
        break;
    case restart:
        out.on = !chance(3);
        out.lans = any_sections("lan");
        out.wans = any_sections("wan");
        break;
    }
    return out;
}

} // namespace model
