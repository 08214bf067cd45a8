#include "world.h"

#include "text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>

namespace seam {

World world;

namespace {

// What a device without a MAC of its own answers with.
constexpr const char *own_mac = "0a:00:00:00:00:01";
// The tables and rule numbers that the platform leaves to WANs.
constexpr int first_wan_table = 10002;
constexpr int last_wan_table = 32765;
constexpr int first_pid = 1001;

bool wan_table(int number)
{
    return number >= first_wan_table && number <= last_wan_table;
}

// What the platform takes: dotted quads, masks of ones before zeros, texts that mean nothing to a shell.
bool is_address(const std::string &text)
{
    in_addr number{};
    return inet_pton(AF_INET, text.c_str(), &number) == 1;
}

bool is_mask(const std::string &text)
{
    in_addr number{};
    const bool whole = inet_pton(AF_INET, text.c_str(), &number) == 1;
    const uint32_t zeros = ~ntohl(number.s_addr);
    return whole && (zeros & (zeros + 1)) == 0;
}

bool is_plain(const Text &text)
{
    const auto odd = [](unsigned char c) {
        return std::isalnum(c) == 0 &&
               std::string_view{".:/_-"}.find(static_cast<char>(c)) == std::string_view::npos;
    };
    return !text || std::none_of(text->begin(), text->end(), odd);
}

// A quote that is left open makes no command line.
bool is_command_line(const std::string &line)
{
    char open = 0;
    for (const char c : line) {
        if (c == open) {
            open = 0;
        } else if (open == 0 && (c == '\'' || c == '"')) {
            open = c;
        }
    }
    return open == 0;
}

bool built_in(const std::string &chain)
{
    return chain == "PREROUTING" || chain == "INPUT" || chain == "FORWARD" || chain == "OUTPUT" ||
           chain == "POSTROUTING";
}

std::string joined(const std::vector<std::string> &words, size_t from)
{
    std::string out;
    for (size_t i = from; i < words.size(); ++i) {
        out += (i == from ? "" : " ") + words[i];
    }
    return out;
}

// The pid file that a command line asks for with "-p".
std::string pid_file_of(const std::string &line)
{
    const size_t at = line.find(" -p ");
    return at == std::string::npos ? "" : line.substr(at + 4, line.find(' ', at + 4) - (at + 4));
}

} // namespace

// A change: not done when it is the one to be refused, else its effect says whether it could be done.
int System::ask(const Words &words, const std::function<bool()> &effect)
{
    const bool refused = refuse_ != 0 && --refuse_ == 0;
    const int result = !refused && effect() ? 0 : -1;
    if (keep_asked_) {
        asked_.push_back(joined(words, 0) + " = " + std::to_string(result));
    }
    return result;
}

int System::always(const Words &words, const std::function<void()> &effect)
{
    return ask(words, [&] { return effect(), true; });
}

// A change of a device, which must be there.
int System::change(const std::string &name, const Words &words, const std::function<bool(Device &)> &effect)
{
    return ask(words, [&] {
        Device *device = find(name);
        return device != nullptr && effect(*device);
    });
}

Device *System::find(const std::string &name)
{
    const auto found = devices.find(name);
    return found == devices.end() || found->second.kind.empty() ? nullptr : &found->second;
}

void System::remove(const std::string &name)
{
    std::vector<std::string> above;
    for (auto &[other, device] : devices) {
        if (device.kind == "vlan of " + name) {
            above.push_back(other);
        }
        if (device.bridge == name) {
            device.bridge.clear();
        }
    }
    devices.erase(name);
    lose_routes(name);
    for (const std::string &other : above) {
        remove(other);
    }
}

int System::vlan_create(const std::string &master, int vid)
{
    const std::string name = master + "." + std::to_string(vid);
    return change(master, {"vlan", name}, [&](const Device & /*master*/) {
        if (vid < 1 || vid > 4094 || name.size() > longest_name) {
            return false;
        }
        std::string &kind = devices[name].kind;
        kind = kind.empty() ? "vlan of " + master : kind;
        return kind == "vlan of " + master;
    });
}

int System::mac_set(const std::string &name, const uint8_t *mac)
{
    const std::string text = mac_text(mac);
    // No kernel gives a device the address of many.
    const bool one = (mac[0] & 1) == 0;
    return change(name, {"mac", name, text},
                  [&](Device &device) { return one && !(device.mac = text).empty(); });
}

int System::mac_get(const std::string &name, uint8_t *mac)
{
    return change(name, {"mac?", name}, [&](const Device &device) {
        return mac_of(device.mac.empty() ? own_mac : device.mac, mac);
    });
}

int System::down(const std::string &name)
{
    return change(name, {"down", name}, [&](Device &device) {
        device.up = false;
        lose_routes(name);
        return true;
    });
}

int System::bridge_create(const std::string &name)
{
    return ask({"bridge", name}, [&] {
        if (name.size() > longest_name) {
            return false;
        }
        std::string &kind = devices[name].kind;
        kind = kind.empty() ? "bridge" : kind;
        return kind == "bridge";
    });
}

int System::bridge_join(const std::string &bridge, const std::string &member)
{
    return change(member, {"join", bridge, member}, [&](Device &device) {
        const Device *there = find(bridge);
        if (there == nullptr || there->kind != "bridge" ||
            (!device.bridge.empty() && device.bridge != bridge)) {
            return false;
        }
        device.bridge = bridge;
        return true;
    });
}

int System::bridge_leave(const std::string &bridge, const std::string &member)
{
    return always({"leave", bridge, member}, [&] {
        if (Device *device = find(member); device != nullptr && device->bridge == bridge) {
            device->bridge.clear();
        }
    });
}

int System::address_set(const std::string &name, const std::string &address)
{
    return change(name, {"address", name, address}, [&](Device &device) {
        if (!is_address(address)) {
            return false;
        }
        const std::string wanted = address == "0.0.0.0" ? "" : address;
        if (wanted.empty() || device.address != wanted) {
            device.mask.clear();
        }
        device.address = wanted;
        if (wanted.empty()) {
            lose_routes(name);
        }
        return true;
    });
}

int System::mask_set(const std::string &name, const std::string &mask)
{
    return change(name, {"mask", name, mask}, [&](Device &device) {
        const bool good = !device.address.empty() && is_mask(mask);
        device.mask = good ? mask : device.mask;
        return good;
    });
}

int System::gateway_add(int table, const std::string &gateway, const std::string &name, int table_again)
{
    const Words words{"gateway", name, std::to_string(table), gateway, std::to_string(table_again)};
    return change(name, words, [&](const Device & /*there*/) {
        return wan_table(table) && reaches(gateway, name) &&
               (gateways.insert_or_assign({table, name}, gateway), true);
    });
}

int System::gateway_del(int table, const std::string &gateway, const std::string &name, int table_again)
{
    const Words words{"gateway-delete", name, std::to_string(table), gateway, std::to_string(table_again)};
    return always(words, [&] { gateways.erase({table, name}); });
}

int System::policy_add(const std::string &name, int number)
{
    return ask({"policy", name, std::to_string(number)}, [&] {
        return wan_table(number) && (policies.try_emplace({number, name}), true);
    });
}

int System::policy_del(const std::string &name, int number)
{
    return always({"policy-delete", name, std::to_string(number)}, [&] {
        const bool used = std::any_of(gateways.begin(), gateways.end(), [&](const auto &entry) {
            return entry.first.first == number && entry.first.second != name;
        });
        std::erase_if(policies, [&](const auto &entry) {
            return entry.first.first == number && (!used || entry.first.second == name);
        });
    });
}

int System::row_insert(const std::string &name, const Row &row)
{
    Words words{"row", name};
    for (const Text &column : row) {
        words.push_back(column.value_or("(none)"));
    }
    return ask(words, [&] {
        const bool good = std::all_of(row.begin(), row.end(), is_plain);
        if (good) {
            rows[name] = row;
        }
        return good;
    });
}

int System::chain_exists(const std::string &table, const std::string &chain) const
{
    return built_in(chain) || chains.contains({table, chain}) ? 1 : 0;
}

int System::rule_exists(const std::string &table, const std::string &chain, const std::string &text) const
{
    const auto found = chains.find({table, chain});
    const auto has = [&](const std::string &rule) { return rule.find(text) != std::string::npos; };
    return found != chains.end() && std::any_of(found->second.begin(), found->second.end(), has) ? 1 : 0;
}

int System::chain_new(const std::string &table, const std::string &chain)
{
    return built_in(chain) || !chains.try_emplace({table, chain}).second ? -1 : 0;
}

int System::rule_append(const std::string &table, const std::string &chain, const std::string &rule)
{
    if (chain_exists(table, chain) == 0) {
        return -1;
    }
    chains[{table, chain}].push_back(joined(words(rule), 0));
    return 0;
}

int System::rules_flush(const std::string &table, const std::string &chain)
{
    if (chain_exists(table, chain) == 0) {
        return -1;
    }
    chains[{table, chain}].clear();
    return 0;
}

int System::iptables(const std::string &line)
{
    const std::vector<std::string> all = words(line);
    const bool other_table = all.size() > 2 && all[1] == "-t";
    const std::string table = other_table ? all[2] : "filter";
    const size_t at = other_table ? 3 : 1;
    if (all.size() < at + 2 || all[0] != "iptables") {
        return -1;
    }
    if (all[at] == "-N") {
        return chain_new(table, all[at + 1]);
    }
    return all[at] == "-A" ? rule_append(table, all[at + 1], joined(all, at + 2)) : -1;
}

int System::client_start(const std::string &service, const std::string &instance, const std::string &line,
                         int /*flag*/)
{
    return ask({"client", service, instance, line}, [&] {
        if (!is_command_line(line)) {
            return false;
        }
        clients[{service, instance}] = line;
        started_clients_.insert({service, instance});
        if (const std::string file = pid_file_of(line); !file.empty()) {
            pids.try_emplace(file, first_pid + started_);
        }
        ++started_;
        return true;
    });
}

int System::client_stop(const std::string &service, const std::string &instance)
{
    return always({"client-stop", service, instance}, [&] {
        if (const auto found = clients.find({service, instance}); found != clients.end()) {
            pids.erase(pid_file_of(found->second));
            clients.erase(found);
        }
    });
}

int System::client_pid(const std::string &pid_file, int *pid)
{
    return ask({"pid?", pid_file}, [&] {
        const auto found = pids.find(pid_file);
        return found != pids.end() && (*pid = found->second) != 0;
    });
}

void System::clients_end()
{
    for (const auto &[service, instance] : std::exchange(started_clients_, {})) {
        client_stop(service, instance);
    }
}

System::Row row_of(const char *proto, const char *ipaddr, const char *netmask, const char *gateway,
                   const char *addr4, const char *addr5)
{
    const auto column = [](const char *text) { return text == nullptr ? Text{} : Text{text}; };
    return {column(proto), column(ipaddr), column(netmask), column(gateway), column(addr4), column(addr5)};
}

std::string route_of(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    return std::to_string(table) + " " + plain(dst) + "/" + plain(mask) + " via " + plain(gw) +
           (dev == nullptr ? "" : " dev " + std::string{dev}) + " metric " + std::to_string(metric);
}

} // namespace seam
