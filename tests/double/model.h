// The world that the daemon changes, as a sorted set of facts: "key = value", or a key alone.
//
// Small on purpose: enough that a real start-up finds its own devices, chains, rules and registers again,
// with the answers the platform library gives (what is there already succeeds, deleting what is absent
// succeeds, working on an absent device fails). Facts survive a restart when the script saves and loads them.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace recorder {

class Model {
public:
    // Facts as text, one for each line; what begins with `prefix` only.
    std::string dump(const std::string &prefix) const;
    // The switch's registers decoded, a line for each entry of the VLAN table that is in use
    // ("1: 4091 members 1,2,6"), or for each front port ("2: 4091").
    std::string vlans() const;
    std::string pvids() const;
    void load(const std::string &path);
    void save(const std::string &path) const;
    // "key = value" or "key"; "-key" takes a fact away.
    void state(const std::string &fact);

    bool has(const std::string &key) const { return facts_.count(key) != 0; }
    std::string get(const std::string &key) const;
    void set(const std::string &key, const std::string &value = {}) { facts_[key] = value; }
    void drop(const std::string &key) { facts_.erase(key); }

    // All of these: 0, or -1.
    int vlan_create(const std::string &master, int vid);
    int device_delete(const std::string &name);
    int device_up(const std::string &name, bool up);
    int device_mac_set(const std::string &name, const std::string &mac);
    int bridge_create(const std::string &name);
    int bridge_join(const std::string &bridge, const std::string &member);
    int bridge_leave(const std::string &bridge, const std::string &member);
    int address_set(const std::string &name, const std::string &address);
    int netmask_set(const std::string &name, const std::string &mask);

    bool chain_exists(const std::string &table, const std::string &chain) const;
    bool rule_exists(const std::string &table, const std::string &chain, const std::string &text) const;
    int chain_new(const std::string &table, const std::string &chain);
    int rule_append(const std::string &table, const std::string &chain, const std::string &rule);
    int rules_flush(const std::string &table, const std::string &chain);
    int iptables(const std::string &line);

    // Switch registers by their offset; PHY registers by address and number. Unset ones read 0.
    uint32_t register_get(const std::string &key) const;
    void register_set(const std::string &key, uint32_t value);

private:
    uint32_t field(uint32_t offset, uint32_t shift, uint32_t mask) const;

    std::map<std::string, std::string> facts_;
};

extern Model model;

} // namespace recorder
