// The world below the daemon: what it only reads, and what it changes.
//
// The answers are those of the platform library: what is there already succeeds, deleting what is absent
// succeeds, working on an absent device fails. Results are 0 or -1 unless said otherwise; questions give 1 or
// 0. Texts are kept as they came.
#pragma once

#include "platform/board.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace seam {

using Text = std::optional<std::string>; // nothing for a null pointer
using Two = std::pair<std::string, std::string>;
using Numbered = std::pair<int, std::string>;

struct Device {
    std::string kind; // "port", "bridge", "vlan of DEVICE"; empty: not there
    std::string bridge;
    std::string mac;
    std::string address;
    std::string mask;
    bool up = false;
};

struct Nothing {};

// What kernel, firewall, supervisor and files hold. It outlives the daemon.
class System {
public:
    using Row = std::array<Text, 6>;

    int vlan_create(const std::string &master, int vid);
    int device_delete(const std::string &name)
    {
        return always({"delete", name}, [&] { remove(name); });
    }
    int mac_set(const std::string &name, const uint8_t *mac);
    int mac_get(const std::string &name, uint8_t *mac);
    int up(const std::string &name)
    {
        return change(name, {"up", name}, [](Device &device) { return device.up = true; });
    }
    int down(const std::string &name);
    int exists(const std::string &name) { return find(name) == nullptr ? 0 : 1; }
    int bridge_create(const std::string &name);
    int bridge_join(const std::string &bridge, const std::string &member);
    int bridge_leave(const std::string &bridge, const std::string &member);
    int address_set(const std::string &name, const std::string &address);
    int mask_set(const std::string &name, const std::string &mask);

    // The second number is the first once more.
    int gateway_add(int table, const std::string &gateway, const std::string &name, int table_again);
    int gateway_del(int table, const std::string &gateway, const std::string &name, int table_again);
    int policy_add(const std::string &name, int number);
    // One rule serves all WANs of a number: it stays while another one has a default route.
    int policy_del(const std::string &name, int number);
    int row_insert(const std::string &name, const Row &row);
    int row_update(const std::string &name, const Row &row)
    {
        return rows.contains(name) ? row_insert(name, row) : -1;
    }
    int row_delete(const std::string &name)
    {
        return always({"row-delete", name}, [&] { rows.erase(name); });
    }
    // A route as it is written in the picture.
    int route_add(const std::string &route);
    int route_del(const std::string &route);
    void rule_add(int number, const std::string &selector) { rules[number] = selector; }
    void rule_del(int number) { rules.erase(number); }

    int chain_exists(const std::string &table, const std::string &chain) const;
    int rule_exists(const std::string &table, const std::string &chain, const std::string &text) const;
    int chain_new(const std::string &table, const std::string &chain);
    int rule_append(const std::string &table, const std::string &chain, const std::string &rule);
    int rules_flush(const std::string &table, const std::string &chain);
    int iptables(const std::string &line);

    int client_start(const std::string &service, const std::string &instance, const std::string &line,
                     int flag);
    int client_stop(const std::string &service, const std::string &instance);
    int client_pid(const std::string &pid_file, int *pid);
    // Stops those that were started here, not those that were there before.
    void clients_end();
    void secret_add(const std::string &user, const std::string &provider, const std::string &password,
                    const std::string &address)
    {
        secrets[{user, provider}] = {password, address};
    }
    int secret_del(const std::string &user, const std::string &provider)
    {
        return secrets.erase({user, provider}) != 0 ? 0 : -1;
    }

    // For two systems that are to be asked the same: the nth change from now on is refused for no reason of
    // its own (0: none), and what was asked since the last take, with the results.
    void refuse(unsigned nth) { refuse_ = nth; }
    void asked_keep() { keep_asked_ = true; }
    std::vector<std::string> asked_take() { return std::exchange(asked_, {}); }

    size_t longest_name = std::string::npos; // of a device; 15 in a kernel
    // As a kernel does: a gateway must be in a network of the device, and routes go when the device goes
    // down, or loses its address.
    bool checks_gateways = false;
    std::map<std::string, Device> devices{{"eth0", {"port", {}, {}, {}, {}, false}}};
    std::map<Numbered, std::string> gateways; // by table and device
    std::map<Numbered, Nothing> policies;
    std::map<std::string, Row> rows;
    std::map<std::string, Nothing> routes;
    std::map<int, std::string> rules;
    std::map<Two, std::vector<std::string>> chains; // by table and chain; those of iptables itself from their
                                                    // first rule on
    std::map<Two, std::string> clients;             // command lines by service and instance
    std::map<std::string, int> pids;                // by file
    std::map<Two, Two> secrets;                     // password and address by user and provider

private:
    using Words = std::vector<std::string>;
    int ask(const Words &words, const std::function<bool()> &effect);
    int always(const Words &words, const std::function<void()> &effect);
    int change(const std::string &name, const Words &words, const std::function<bool(Device &)> &effect);
    Device *find(const std::string &name);
    void remove(const std::string &name);
    bool reaches(const std::string &gateway, const std::string &name) const;
    void lose_routes(const std::string &name);

    unsigned refuse_ = 0;
    bool keep_asked_ = false;
    std::vector<std::string> asked_;
    int started_ = 0;
    std::set<Two> started_clients_;
};

// The switch: its registers and its PHYs. Registers that were never written read 0.
class Hardware {
public:
    struct VlanEntry {
        uint32_t vid;
        uint32_t members;
        bool operator==(const VlanEntry &) const = default;
    };

    void read(uint32_t offset, uint32_t *value) { *value = registers[offset]; }
    void write(uint32_t offset, uint32_t value) { registers[offset] = value; }
    void cpu_read(uint32_t address, uint32_t *value) { read(address - register_block, value); }
    void cpu_write(uint32_t address, uint32_t value) { write(address - register_block, value); }
    void phy_read(uint32_t phy, uint32_t reg, uint32_t *value) { *value = phys[{phy, reg}]; }
    void phy_write(uint32_t phy, uint32_t reg, uint32_t value) { phys[{phy, reg}] = value; }

    VlanEntry vlan_entry(uint32_t index) const;
    uint32_t pvid(uint32_t port) const;
    // The ports that frames of an entry leave without a tag, where untagging is on.
    uint32_t untagged(uint32_t index) const;
    bool untagging() const;
    // Takes out of both what no frame meets in either: the PVID of a port that is no member of that VLAN, the
    // untag bits of an entry without members.
    static void forget_idle(Hardware &a, Hardware &b);
    // A line for each entry of the VLAN table with a VLAN or a member ("1: 4091 members 1,2,6"), or for each
    // front port ("2: 4091").
    std::string vlans() const;
    std::string pvids() const;

    static constexpr uint32_t register_block = 0x10110000; // of the CPU's addresses
    static constexpr uint32_t vlan_entries = 16;
    static constexpr uint32_t front_ports = 5;

    std::map<uint32_t, uint32_t> registers;
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> phys;
    std::array<uint32_t, 8> port_words{}; // the kernel's answer to the query of ports

private:
    uint32_t field(uint32_t offset, uint32_t shift, uint32_t mask) const;
    void clear(uint32_t offset, uint32_t shift, uint32_t mask);
    bool uses_pvid(uint32_t port) const;
};

// A row of these columns, and a route as it is written in the picture.
System::Row row_of(const char *proto, const char *ipaddr, const char *netmask, const char *gateway,
                   const char *addr4, const char *addr5);
std::string route_of(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric);
// The same, but for a device that only one of them names: the kernel finds it out itself.
bool same_route(const std::string &a, const std::string &b);
// What an address has to which no mask was given.
std::string mask_by_class(const std::string &address);

struct Section {
    std::string package;
    std::string type;
    std::string name;
    std::vector<std::pair<std::string, std::string>> options;
};

struct World {
    // What the daemon only reads.
    std::array<uint8_t, 6> mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x50};
    uint32_t cpu = 0;
    std::array<std::optional<netbd_ether>, 16> ports;
    std::set<std::string> packages; // of the configuration; others cannot be read
    std::vector<Section> sections;
    std::string time = "2026-01-02 03:04:05";
    Text net_dev = ""; // nothing: cannot be read

    Hardware hardware;
    System system;
};
extern World world;

// Facts in words, sorted: "key = value", or a key alone.
using Facts = std::map<std::string, std::string>;
Facts facts(const System &system);
Facts facts(const Hardware &hardware);
// One for each line; those whose key begins so.
std::string lines_of(const Facts &facts, const std::string &prefix = {});
// What there is of the world, or decoded, with "vlans" or "pvids".
std::string picture(const std::string &prefix);
// "key = value" or "key"; "-key" takes a fact away. False for an unknown kind of fact.
bool state_fact(const std::string &fact);

// The facts that differ from those of the last time, as they are stated; the first time all there are.
std::vector<std::string> changed_facts();

// A file of facts in place of system and hardware; how these are kept when the daemon ends or is killed.
void load(const std::string &path);
void save_to(const std::string &path);
void save();

} // namespace seam
