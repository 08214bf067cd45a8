// What the daemon works on besides the switch, as far as it matters here: network devices, policy rules, WAN
// rows and client processes, with the kernel's and the platform library's refusals. One of these stands below
// the daemon, another below the oracle; both must be asked the same things in the same order and then look
// alike.
//
// Results are 0 or a negative errno. Texts of addresses are kept as they came.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

using Mac = std::array<uint8_t, 6>;

struct Device {
    enum class Kind { ethernet, vlan, bridge };
    Kind kind = Kind::ethernet;
    std::string lower; // of a VLAN device
    int vid = 0;
    std::string bridge; // that it is a member of
    bool up = false;
    Mac mac{};
    std::string ip, mask;
    bool operator==(const Device &) const = default;
};

class Kernel {
public:
    Kernel() { clear(); }

    // Nothing but the two Ethernet devices, and nothing asked so far.
    void clear();
    // The nth request from now on is refused for no reason of its own; 0: none.
    void refuse(unsigned nth) { refuse_ = nth; }

    int vlan_create(const std::string &master, int vid);
    int vlan_delete(const std::string &name);
    int mac_set(const std::string &name, const Mac &mac);
    int mac_get(const std::string &name, Mac &mac);
    int up(const std::string &name);
    int down(const std::string &name);
    bool exists(const std::string &name) const { return devices_.contains(name); }
    int bridge_create(const std::string &name);
    int bridge_delete(const std::string &name);
    int bridge_join(const std::string &bridge, const std::string &member);
    int bridge_leave(const std::string &bridge, const std::string &member);
    int address_set(const std::string &name, const std::string &ip);
    int mask_set(const std::string &name, const std::string &mask);
    int gateway_add(int number, const std::string &gateway, const std::string &name);
    int gateway_del(int number, const std::string &gateway, const std::string &name);
    int rule_add(const std::string &name, int number);
    int rule_del(const std::string &name, int number);
    int row_insert(const std::vector<std::string> &columns);
    int row_delete(const std::string &name);
    int client_start(const std::string &service, const std::string &name, const std::string &line);
    int client_stop(const std::string &service, const std::string &name);
    int client_pid(const std::string &pid_file, int &pid);

    const std::map<std::string, Device> &devices() const { return devices_; }
    size_t objects() const;
    // What was asked since the last take, with the results.
    std::vector<std::string> asked_take() { return std::exchange(asked_, {}); }
    // Everything that is there, in words.
    std::string picture() const;

private:
    int ask(const std::string &request, int result);
    bool refused();
    void remove(const std::string &name);
    int change(const std::string &request, const std::string &name, auto change);

    std::map<std::string, Device> devices_;
    std::map<std::pair<std::string, int>, std::string> gateways_; // by device and table
    std::set<std::pair<std::string, int>> rules_;
    std::map<std::string, std::vector<std::string>> rows_;
    std::map<std::string, std::pair<std::string, int>> clients_; // "service name": line, pid
    std::vector<std::string> asked_;
    unsigned refuse_ = 0;
    int next_pid_ = 0;
};

std::string text(const Mac &mac);

} // namespace model
