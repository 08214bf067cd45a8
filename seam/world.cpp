#include "world.h"

#include "text.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

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

bool built_in(const std::string &chain)
{
    return chain == "PREROUTING" || chain == "INPUT" || chain == "FORWARD" || chain == "OUTPUT" ||
           chain == "POSTROUTING";
}

std::vector<std::string> words(const std::string &line)
{
    std::istringstream in{line};
    std::vector<std::string> out;
    for (std::string word; in >> word;) {
        out.push_back(word);
    }
    return out;
}

std::string joined(const std::vector<std::string> &words, size_t from)
{
    std::string out;
    for (size_t i = from; i < words.size(); i++) {
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

const std::string &word(const std::string &text)
{
    return text;
}

std::string word(int number)
{
    return std::to_string(number);
}

std::string word(const System::Row &row)
{
    std::string out;
    for (const Text &column : row) {
        out += column.value_or("(none)") + " ";
    }
    return out;
}

} // namespace

// A change: not done when it is the one to be refused, else its effect says whether it could be done; one
// that says nothing could.
template <class Effect, class... Words> int System::ask(Effect effect, const Words &...words)
{
    bool done = !(refuse_ != 0 && --refuse_ == 0);
    if constexpr (std::is_void_v<decltype(effect())>) {
        done ? effect() : void();
    } else {
        done = done && effect();
    }
    const int result = done ? 0 : -1;
    if (keep_asked_) {
        std::string line;
        ((line += word(words) + " "), ...);
        asked_.push_back(line + "= " + std::to_string(result));
    }
    return result;
}

// A change of a device, which must be there.
template <class Effect, class... Words>
int System::change(const std::string &name, Effect effect, const Words &...words)
{
    const auto of_device = [&] {
        Device *device = find(name);
        return device != nullptr && effect(*device);
    };
    return ask(of_device, words...);
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
    for (const std::string &other : above) {
        remove(other);
    }
}

int System::vlan_create(const std::string &master, int vid)
{
    const std::string name = master + "." + std::to_string(vid);
    const auto create = [&](const Device & /*master*/) {
        if (vid < 1 || vid > 4094 || name.size() > longest_name) {
            return false;
        }
        std::string &kind = devices[name].kind;
        kind = kind.empty() ? "vlan of " + master : kind;
        return kind == "vlan of " + master;
    };
    return change(master, create, "vlan", name);
}

int System::device_delete(const std::string &name)
{
    return ask([&] { remove(name); }, "delete", name);
}

int System::mac_set(const std::string &name, const uint8_t *mac)
{
    const auto set = [&](Device &device) {
        device.mac = mac_text(mac);
        return true;
    };
    return change(name, set, "mac", name, mac_text(mac));
}

int System::mac_get(const std::string &name, uint8_t *mac)
{
    const auto get = [&](const Device &device) {
        return mac_of(device.mac.empty() ? own_mac : device.mac, mac);
    };
    return change(name, get, "mac?", name);
}

int System::up(const std::string &name)
{
    return change(
        name, [](Device &device) { return device.up = true; }, "up", name);
}

int System::down(const std::string &name)
{
    return change(
        name, [](Device &device) { return !(device.up = false); }, "down", name);
}

int System::exists(const std::string &name) const
{
    const auto found = devices.find(name);
    return found != devices.end() && !found->second.kind.empty() ? 1 : 0;
}

int System::bridge_create(const std::string &name)
{
    const auto create = [&] {
        if (name.size() > longest_name) {
            return false;
        }
        std::string &kind = devices[name].kind;
        kind = kind.empty() ? "bridge" : kind;
        return kind == "bridge";
    };
    return ask(create, "bridge", name);
}

int System::bridge_join(const std::string &bridge, const std::string &member)
{
    const auto join = [&](Device &device) {
        const Device *there = find(bridge);
        if (there == nullptr || there->kind != "bridge" ||
            (!device.bridge.empty() && device.bridge != bridge)) {
            return false;
        }
        device.bridge = bridge;
        return true;
    };
    return change(member, join, "join", bridge, member);
}

int System::bridge_leave(const std::string &bridge, const std::string &member)
{
    const auto leave = [&] {
        if (Device *device = find(member); device != nullptr && device->bridge == bridge) {
            device->bridge.clear();
        }
    };
    return ask(leave, "leave", bridge, member);
}

int System::address_set(const std::string &name, const std::string &address)
{
    const auto set = [&](Device &device) {
        const std::string wanted = address == "0.0.0.0" ? "" : address;
        if (wanted.empty() || device.address != wanted) {
            device.mask.clear();
        }
        device.address = wanted;
        return true;
    };
    return change(name, set, "address", name, address);
}

int System::mask_set(const std::string &name, const std::string &mask)
{
    const auto set = [&](Device &device) {
        device.mask = device.address.empty() ? "" : mask;
        return !device.address.empty();
    };
    return change(name, set, "mask", name, mask);
}

int System::gateway_add(int table, const std::string &gateway, const std::string &name, int table_again)
{
    const auto add = [&](const Device & /*there*/) {
        if (wan_table(table)) {
            gateways[{table, name}] = gateway;
        }
        return wan_table(table);
    };
    return change(name, add, "gateway", name, table, gateway, table_again);
}

int System::gateway_del(int table, const std::string &gateway, const std::string &name, int table_again)
{
    return ask([&] { gateways.erase({table, name}); }, "gateway-delete", name, table, gateway, table_again);
}

int System::policy_add(const std::string &name, int number)
{
    const auto add = [&] {
        if (wan_table(number)) {
            policies.insert({number, name});
        }
        return wan_table(number);
    };
    return ask(add, "policy", name, number);
}

int System::policy_del(const std::string &name, int number)
{
    return ask([&] { policies.erase({number, name}); }, "policy-delete", name, number);
}

int System::row_insert(const std::string &name, const Row &row)
{
    return ask([&] { rows[name] = row; }, "row", name, row);
}

int System::row_update(const std::string &name, const Row &row)
{
    return rows.contains(name) ? row_insert(name, row) : -1;
}

int System::row_delete(const std::string &name)
{
    return ask([&] { rows.erase(name); }, "row-delete", name);
}

int System::route_add(const std::string &route)
{
    routes.insert(route);
    return 0;
}

int System::route_del(const std::string &route)
{
    return routes.erase(route) != 0 ? 0 : -1;
}

int System::rule_add(uint32_t number, const std::string &selector)
{
    rules[static_cast<int>(number)] = selector;
    return 0;
}

int System::rule_del(uint32_t number)
{
    rules.erase(static_cast<int>(number));
    return 0;
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
    const auto start = [&] {
        clients[{service, instance}] = line;
        if (const std::string file = pid_file_of(line); !file.empty()) {
            pids.try_emplace(file, first_pid + started_);
        }
        started_++;
    };
    return ask(start, "client", service, instance, line);
}

int System::client_stop(const std::string &service, const std::string &instance)
{
    const auto stop = [&] {
        if (const auto found = clients.find({service, instance}); found != clients.end()) {
            pids.erase(pid_file_of(found->second));
            clients.erase(found);
        }
    };
    return ask(stop, "client-stop", service, instance);
}

int System::client_pid(const std::string &pid_file, int *pid)
{
    const auto get = [&] {
        const auto found = pids.find(pid_file);
        if (found != pids.end()) {
            *pid = found->second;
        }
        return found != pids.end();
    };
    return ask(get, "pid?", pid_file);
}

int System::secret_add(const std::string &user, const std::string &provider, const std::string &password,
                       const std::string &address)
{
    secrets[{user, provider}] = {password, address};
    return 0;
}

int System::secret_del(const std::string &user, const std::string &provider)
{
    return secrets.erase({user, provider}) != 0 ? 0 : -1;
}

} // namespace seam
