#include "model.h"

#include "script.h"
#include "trace.h"

#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace recorder {

Model model;

namespace {

constexpr const char *between_rules = " ; ";

void close_quietly(int fd)
{
    syscall(SYS_close, fd);
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

bool built_in(const std::string &chain)
{
    return chain == "PREROUTING" || chain == "INPUT" || chain == "FORWARD" || chain == "OUTPUT" ||
           chain == "POSTROUTING";
}

} // namespace

std::string Model::dump(const std::string &prefix) const
{
    std::string out;
    for (const auto &[key, value] : facts_) {
        if (key.compare(0, prefix.size(), prefix) == 0) {
            out += value.empty() ? key + "\n" : key + " = " + value + "\n";
        }
    }
    return out;
}

uint32_t Model::field(uint32_t offset, uint32_t shift, uint32_t mask) const
{
    return register_get(register_key(offset)) >> shift & mask;
}

std::string Model::vlans() const
{
    std::string out;
    for (uint32_t i = 0; i < 16; i++) {
        const uint32_t vid = field(0x50 + 4 * (i / 2), 12 * (i % 2), 0xfff);
        const uint32_t members = field(0x70 + 4 * (i / 4), 8 * (i % 4), 0xff);
        if (vid == 0 && members == 0) {
            continue;
        }
        out += std::to_string(i) + ": " + std::to_string(vid) + " members";
        for (uint32_t port = 0, first = 1; port < 8; port++) {
            if ((members >> port & 1) != 0) {
                out += (first != 0 ? " " : ",") + std::to_string(port);
                first = 0;
            }
        }
        out += "\n";
    }
    return out;
}

std::string Model::pvids() const
{
    std::string out;
    for (uint32_t port = 0; port < 5; port++) {
        const uint32_t vid = field(0x40 + 4 * (port / 2), 12 * (port % 2), 0xfff);
        out += std::to_string(port) + ": " + std::to_string(vid) + "\n";
    }
    return out;
}

void Model::load(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    std::string text;
    char block[4096];
    for (ssize_t n = 0; (n = read(fd, block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(n));
    }
    close_quietly(fd);
    facts_.clear();
    std::istringstream in{text};
    for (std::string line; std::getline(in, line);) {
        state(line);
    }
}

void Model::save(const std::string &path) const
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    const std::string text = dump({});
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        abort();
    }
    close_quietly(fd);
}

void Model::state(const std::string &fact)
{
    if (!fact.empty() && fact.front() == '-') {
        facts_.erase(fact.substr(1));
        return;
    }
    const size_t at = fact.find(" = ");
    if (at == std::string::npos) {
        facts_[fact] = {};
    } else {
        facts_[fact.substr(0, at)] = fact.substr(at + 3);
    }
}

std::string Model::get(const std::string &key) const
{
    const auto found = facts_.find(key);
    return found == facts_.end() ? std::string{} : found->second;
}

int Model::vlan_create(const std::string &master, int vid)
{
    if (!has("device " + master) || vid < 1 || vid > 4094) {
        return -1;
    }
    const std::string key = "device " + master + "." + std::to_string(vid);
    if (!has(key)) {
        set(key, "vlan of " + master);
    }
    return get(key) == "vlan of " + master ? 0 : -1;
}

int Model::device_delete(const std::string &name)
{
    for (const char *what : {"device ", "up ", "mac ", "address ", "netmask ", "bridge of "}) {
        drop(what + name);
    }
    std::vector<std::string> above;
    for (const auto &[key, value] : facts_) {
        if (key.compare(0, 7, "device ") == 0 && value == "vlan of " + name) {
            above.push_back(key.substr(7));
        }
    }
    for (const std::string &device : above) {
        device_delete(device);
    }
    std::erase_if(facts_, [&](const auto &fact) {
        return fact.first.compare(0, 10, "bridge of ") == 0 && fact.second == name;
    });
    return 0;
}

int Model::device_up(const std::string &name, bool up)
{
    if (!has("device " + name)) {
        return -1;
    }
    if (up) {
        set("up " + name);
    } else {
        drop("up " + name);
    }
    return 0;
}

int Model::device_mac_set(const std::string &name, const std::string &mac)
{
    if (!has("device " + name)) {
        return -1;
    }
    set("mac " + name, mac);
    return 0;
}

int Model::bridge_create(const std::string &name)
{
    const std::string key = "device " + name;
    if (!has(key)) {
        set(key, "bridge");
    }
    return get(key) == "bridge" ? 0 : -1;
}

int Model::bridge_join(const std::string &bridge, const std::string &member)
{
    const std::string key = "bridge of " + member;
    if (get("device " + bridge) != "bridge" || !has("device " + member) || (has(key) && get(key) != bridge)) {
        return -1;
    }
    set(key, bridge);
    return 0;
}

int Model::bridge_leave(const std::string &bridge, const std::string &member)
{
    if (get("bridge of " + member) == bridge) {
        drop("bridge of " + member);
    }
    return 0;
}

int Model::address_set(const std::string &name, const std::string &address)
{
    if (!has("device " + name)) {
        return -1;
    }
    if (address == "0.0.0.0") {
        drop("address " + name);
        drop("netmask " + name);
    } else if (get("address " + name) != address) {
        set("address " + name, address);
        drop("netmask " + name);
    }
    return 0;
}

int Model::netmask_set(const std::string &name, const std::string &mask)
{
    if (!has("address " + name)) {
        return -1;
    }
    set("netmask " + name, mask);
    return 0;
}

bool Model::chain_exists(const std::string &table, const std::string &chain) const
{
    return built_in(chain) || has("chain " + table + " " + chain);
}

bool Model::rule_exists(const std::string &table, const std::string &chain, const std::string &text) const
{
    return get("chain " + table + " " + chain).find(text) != std::string::npos;
}

int Model::chain_new(const std::string &table, const std::string &chain)
{
    if (chain_exists(table, chain)) {
        return -1;
    }
    set("chain " + table + " " + chain);
    return 0;
}

int Model::rule_append(const std::string &table, const std::string &chain, const std::string &rule)
{
    if (!chain_exists(table, chain)) {
        return -1;
    }
    std::string normal;
    for (const std::string &word : words(rule)) {
        normal += normal.empty() ? "" : " ";
        normal += word;
    }
    std::string &rules = facts_["chain " + table + " " + chain];
    rules += rules.empty() ? "" : between_rules;
    rules += normal;
    return 0;
}

int Model::rules_flush(const std::string &table, const std::string &chain)
{
    if (!chain_exists(table, chain)) {
        return -1;
    }
    set("chain " + table + " " + chain);
    return 0;
}

int Model::iptables(const std::string &line)
{
    const std::vector<std::string> all = words(line);
    std::string table = "filter";
    size_t at = 1;
    if (all.size() > at + 1 && all[at] == "-t") {
        table = all[at + 1];
        at += 2;
    }
    if (all.empty() || all[0] != "iptables" || all.size() < at + 2) {
        return -1;
    }
    const std::string &verb = all[at];
    const std::string &chain = all[at + 1];
    std::string rule;
    for (size_t i = at + 2; i < all.size(); i++) {
        rule += rule.empty() ? "" : " ";
        rule += all[i];
    }
    if (verb == "-N") {
        return chain_new(table, chain);
    }
    return verb == "-A" ? rule_append(table, chain, rule) : -1;
}

uint32_t Model::register_get(const std::string &key) const
{
    return static_cast<uint32_t>(std::strtoul(get(key).c_str(), nullptr, 16));
}

void Model::register_set(const std::string &key, uint32_t value)
{
    if (value == 0) {
        drop(key);
    } else {
        set(key, hex(value, 8));
    }
}

} // namespace recorder
