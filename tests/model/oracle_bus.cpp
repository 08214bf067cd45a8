// The start and the methods of the bus.

#include "oracle.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace model {

namespace {

constexpr int ok = 0;
constexpr int invalid_command = 1;
constexpr int invalid_argument = 2;
constexpr int unknown_error = 9;
constexpr int fail = -1;
constexpr int no_such_interface = -13;
constexpr int configuration_error = -8;
constexpr int default_number = 20001;
constexpr size_t names_at_once = 16;
const std::string nowhere = "0.0.0.0";

Type type_of(const std::string &name)
{
    return name.starts_with("lan") ? Type::lan : name.starts_with("wan") ? Type::wan : Type::none;
}

std::string value_or(const Fields &fields, const std::string &name, const std::string &instead)
{
    const auto found = fields.find(name);
    return found == fields.end() ? instead : found->second;
}

unsigned vlan_field(const Fields &fields, const std::string &name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? no_vlan : static_cast<unsigned>(std::atoi(found->second.c_str())) % 65536;
}

Mac mac_of(const std::string &text)
{
    Mac mac{};
    std::sscanf(text.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4],
                &mac[5]);
    return mac;
}

std::optional<Proto> proto_of(const std::string &text)
{
    if (text.starts_with("dhcp")) {
        return Proto::dhcp;
    }
    if (text.starts_with("stati")) {
        return Proto::fixed;
    }
    return text.starts_with("pppoe") ? std::optional{Proto::pppoe} : std::nullopt;
}

std::string proto_text(Proto proto)
{
    return proto == Proto::dhcp ? "dhcp" : proto == Proto::pppoe ? "pppoe" : "static";
}

Interface wanted(const std::string &name, Type type, const Fields &fields)
{
    Interface entry;
    entry.name = name;
    entry.type = type;
    entry.vlan1 = vlan_field(fields, "vlanid1");
    entry.vlan2 = vlan_field(fields, "vlanid2");
    if (const auto mac = fields.find("mac"); mac != fields.end()) {
        entry.mac = mac_of(mac->second);
    }
    return entry;
}

bool default_name(const std::string &name)
{
    return name.size() == std::string{"lan1_default"}.size() && name[3] >= '1' && name[3] <= '4' &&
           name.ends_with("_default");
}

} // namespace

void Oracle::die()
{
    ports = {};
    lan_ports_made_.clear();
    wan_ports_made_.clear();
}

int Oracle::start(const std::vector<Section> &lans, const std::vector<Section> &wans)
{
    if (const int error = kernel.up("eth0"); error != 0) {
        return error;
    }
    if (plan_.two_cpu_ports) {
        if (const int error = kernel.up("eth1"); error != 0) {
            return error;
        }
    }
    for (unsigned i = 0; i < table_size; i++) {
        sw.table[i] = {i < front_ports ? port_vlan(i) : 0, {}};
    }
    sw.port_vlans_untagged = true;
    for (unsigned lan = 1; const auto port = port_of("lan" + std::to_string(lan)); lan++) {
        sw.pvid[*port] = port_vlan(lan1());
        sw.join_entry(lan1(), port_vlan(lan1()), *port);
    }
    for (const auto &[type, sections] : {std::pair{Type::lan, lans}, std::pair{Type::wan, wans}}) {
        for (const Section &one : sections) {
            if (type_of(one.name) == type && section(type, one) != 0) {
                return configuration_error;
            }
        }
    }
    return ok;
}

int Oracle::section(Type type, const Section &section)
{
    const auto port = port_of(section.name);
    const auto proto = proto_of(value_or(section.fields, "proto", "static"));
    if (!port || (type == Type::wan && !proto)) {
        return fail;
    }
    Interface entry = wanted(section.name, type, section.fields);
    if (!section.fields.contains("mac") && default_name(section.name)) {
        entry.mac = port_mac(*port, 0);
    }
    auto &made = type == Type::lan ? lan_ports_made_ : wan_ports_made_;
    if (!made.contains(*port)) {
        if (port_own(type, std::atoi(section.name.c_str() + 3), *port) != 0) {
            return fail;
        }
        made.insert(*port);
    }
    const bool enable = std::atoi(value_or(section.fields, "enable", "0").c_str()) != 0;
    Interface *record = make(entry, type == Type::lan ? Proto::fixed : *proto, enable);
    if (record == nullptr) {
        return fail;
    }
    if (type == Type::lan) {
        return lan_address(*record, section.fields);
    }
    record->enable = enable;
    return section_wan(record, section, *proto);
}

int Oracle::section_wan(Interface *entry, const Section &section, Proto proto)
{
    entry->proto = proto;
    entry->number = std::atoi(value_or(section.fields, "defrt_pri", std::to_string(default_number)).c_str());
    const bool link = link_of(entry->name).value_or(false);
    if (proto == Proto::fixed) {
        if (const int error = fixed(*entry, section.fields, entry->number); error != 0) {
            return error;
        }
        kernel.policy_del(entry->name, entry->number);
        if (link && entry->enable) {
            kernel.policy_add(entry->name, entry->number);
        }
    } else if (proto == Proto::dhcp ? dhcp(*entry) != 0 : pppoe(*entry, section.fields, "server") != 0) {
        return fail;
    }
    const auto column = [&](const std::string &name) {
        return proto == Proto::fixed ? value_or(section.fields, name, nowhere) : nowhere;
    };
    return kernel.row_insert(entry->name, {proto_text(proto), column("ipaddr"), column("netmask"),
                                           column("gateway"), nowhere, nowhere});
}

Interface *Oracle::make(const Interface &wanted, Proto proto, bool up)
{
    const auto port = port_of(wanted.name);
    if (!port) {
        return nullptr;
    }
    auto &list = ports[*port].interfaces;
    list.push_back(wanted);
    list.back().port = *port;
    if (wanted.vlan1 != no_vlan && vlan_make(wanted.type, *port, wanted.vlan1, wanted.vlan2) != 0) {
        return nullptr;
    }
    Interface with_proto = list.back();
    with_proto.proto = proto;
    if (bridge_make(with_proto, up) != 0) {
        return nullptr;
    }
    if (wanted.mac == Mac{}) {
        kernel.mac_get(wanted.name, list.back().mac.data());
    }
    return &list.back();
}

int Oracle::unmake(const std::string &name, Type type)
{
    const Interface *entry = find(name);
    if (entry == nullptr) {
        return no_such_interface;
    }
    if (type == Type::wan) {
        stop(*entry);
    }
    if (const int error = bridge_remove(*entry); error != 0) {
        return error;
    }
    if (entry->vlan1 != no_vlan) {
        if (const int error = vlan_remove(entry->type, entry->port, entry->vlan1, entry->vlan2); error != 0) {
            return error;
        }
    }
    drop(entry);
    return ok;
}

int Oracle::add(const Fields &fields)
{
    if (!fields.contains("intf")) {
        return invalid_argument;
    }
    const std::string &name = fields.at("intf");
    const Type type = type_of(name);
    if (type == Type::none) {
        return invalid_command;
    }
    if (type == Type::lan) {
        if (!fields.contains("ipaddr") || !fields.contains("netmask")) {
            return invalid_argument;
        }
        Interface *entry = make(wanted(name, type, fields), Proto::fixed, true);
        return entry == nullptr ? invalid_command : lan_address(*entry, fields);
    }
    const bool link = link_of(name).value_or(false);
    const auto proto = proto_of(value_or(fields, "proto", ""));
    if (!proto) {
        return invalid_argument;
    }
    if (!fields.contains("defrt_pri")) {
        return invalid_command;
    }
    Interface *entry = make(wanted(name, type, fields), *proto, true);
    if (entry == nullptr) {
        return invalid_command;
    }
    entry->proto = *proto;
    entry->number = std::atoi(fields.at("defrt_pri").c_str());
    int error = 0;
    if (*proto == Proto::fixed) {
        error = fixed(*entry, fields, entry->number);
        if (error == 0 && link) {
            kernel.policy_add(name, entry->number);
        }
    } else {
        error = *proto == Proto::dhcp ? dhcp(*entry) : pppoe(*entry, fields, "ipaddr");
    }
    return error != 0 ? error
                      : kernel.row_insert(name, {fields.at("proto"), value_or(fields, "ipaddr", nowhere),
                                                 value_or(fields, "netmask", nowhere),
                                                 value_or(fields, "gateway", nowhere), nowhere, nowhere});
}

int Oracle::del(const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        if (type_of(name) == Type::none) {
            return invalid_argument;
        }
        if (unmake(name, type_of(name)) != 0) {
            return invalid_command;
        }
    }
    return ok;
}

int Oracle::enable(const std::vector<std::string> &names, bool enable)
{
    const auto link = names.empty() ? std::nullopt : link_of(names.front());
    for (size_t i = 0; link && i < names.size() && i < names_at_once; i++) {
        if (const int status = enable_one(names[i], enable, *link); status != ok) {
            return status;
        }
    }
    return ok;
}

int Oracle::config(const Fields &fields)
{
    if (!fields.contains("intf") || !fields.contains("old_intf")) {
        return invalid_argument;
    }
    const std::string &name = fields.at("intf");
    const Type type = type_of(name);
    Interface *entry = find(fields.at("old_intf"));
    if (entry == nullptr) {
        return unknown_error;
    }
    if (type == Type::wan) {
        stop(*entry);
    }
    if (bridge_remove(*entry) != 0 ||
        (entry->vlan1 != no_vlan && vlan_remove(entry->type, entry->port, entry->vlan1, entry->vlan2) != 0)) {
        return unknown_error;
    }
    const bool same_name = entry->name == name;
    const Interface change = wanted(name, type, fields);
    entry->name = name;
    entry->vlan1 = change.vlan1;
    entry->vlan2 = change.vlan2;
    if (fields.contains("mac")) {
        entry->mac = change.mac;
    }
    const auto proto = proto_of(value_or(fields, "proto", ""));
    if (!proto) {
        return invalid_argument;
    }
    if (type == Type::wan && entry->proto == Proto::pppoe && same_name && kernel.exists(name)) {
        return invalid_argument;
    }
    if (entry->vlan1 != no_vlan && vlan_make(entry->type, entry->port, entry->vlan1, entry->vlan2) != 0) {
        return unknown_error;
    }
    Interface with_proto = *entry;
    with_proto.proto = *proto;
    if (bridge_make(with_proto, entry->enable) != 0) {
        return unknown_error;
    }
    if (type == Type::lan) {
        return fields.contains("ipaddr") && fields.contains("netmask") && lan_address(*entry, fields) == 0
                   ? ok
                   : invalid_argument;
    }
    entry->proto = *proto;
    return wan_config(*entry, fields);
}

int Oracle::wan_config(Interface &entry, const Fields &fields)
{
    if (!fields.contains("defrt_pri")) {
        return invalid_command;
    }
    entry.number = std::atoi(fields.at("defrt_pri").c_str());
    const bool link = link_of(entry.name).value_or(false);
    seam::System::Row row{proto_text(entry.proto)};
    if (entry.proto == Proto::fixed) {
        for (size_t column = 1; const std::string name : {"ipaddr", "netmask", "gateway"}) {
            if (!fields.contains(name)) {
                return invalid_command;
            }
            row.at(column++) = fields.at(name);
        }
        kernel.gateway_del(entry.number, entry.gateway, entry.name, entry.number);
        kernel.policy_del(entry.name, entry.number);
        if (fixed(entry, fields, entry.number) != 0) {
            return invalid_command;
        }
        if (link && entry.enable) {
            kernel.policy_add(entry.name, entry.number);
        }
    } else if (entry.proto == Proto::dhcp) {
        if (dhcp(entry) != 0) {
            return invalid_command;
        }
    } else if (!fields.contains("username") || !fields.contains("password")) {
        return invalid_command;
    } else if (!entry.enable) {
        kernel.client_stop("pppoe", entry.name);
    } else if (pppoe(entry, fields, "server") != 0) {
        return invalid_command;
    }
    return kernel.row_insert(entry.name, row) == 0 ? ok : invalid_command;
}

int Oracle::port_add(const std::string &name)
{
    const Type type = type_of(name);
    const auto port = port_of(name);
    if (!port || name.size() != 4) {
        return invalid_command;
    }
    Interface entry;
    entry.name = name + "_default";
    entry.type = type;
    entry.port = *port;
    entry.mac = port_mac(*port, 0);
    entry.proto = Proto::fixed;
    ports[*port].interfaces.push_back(entry);
    return port_own(type, std::atoi(name.c_str() + 3), *port) == 0 && bridge_make(entry, true) == 0
               ? ok
               : invalid_command;
}

int Oracle::port_del(const std::string &name)
{
    const Type type = type_of(name);
    const auto port = port_of(name);
    if (!port || name.size() != 4) {
        return invalid_command;
    }
    std::vector<std::string> names;
    for (const Interface &entry : ports[*port].interfaces) {
        names.push_back(entry.name);
    }
    for (const std::string &one : names) {
        if (unmake(one, type) != 0) {
            return invalid_command;
        }
    }
    return port_back(type, *port);
}

int Oracle::port_back(Type type, unsigned port)
{
    const auto [device, cpu] = master(type);
    if (vlan_device_gone(device + "." + std::to_string(port_vlan(port))) != 0) {
        return invalid_command;
    }
    sw.pvid[port] = port_vlan(lan1());
    sw.join_entry(lan1(), port_vlan(lan1()), port);
    sw.leave_entry(port, port_vlan(port), port);
    sw.leave_entry(port, port_vlan(port), cpu);
    ports[port].type = Type::none;
    ports[port].name = "lan1";
    return ok;
}

} // namespace model
