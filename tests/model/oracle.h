// What the daemon should do, written from its documented behaviour and not from its sources: interfaces,
// ports, VLANs and what they make of the switch and of the kernel. Statuses are the daemon's.
#pragma once

#include "switch.h"
#include "world.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace model {

inline constexpr unsigned no_vlan = 65535;

using Mac = std::array<uint8_t, 6>;

enum class Type { none, lan, wan };
enum class Proto { none, fixed, dhcp, pppoe };

struct BoardPlan {
    // Role (1 LAN, 2 WAN, 3 both) and switch port of each Ethernet index from 0 on.
    std::vector<std::pair<unsigned, unsigned>> ethernet;
    bool two_cpu_ports = false;
    Mac base{0x00, 0x11, 0x22, 0x33, 0x44, 0x50};
};

struct Interface {
    std::string name;
    Type type = Type::none;
    unsigned port = 0;
    unsigned vlan1 = no_vlan, vlan2 = no_vlan;
    Mac mac{};
    std::string ip = "0.0.0.0", mask = "0.0.0.0", gateway = "0.0.0.0";
    bool enable = true;
    int number = 0; // of the default route
    Proto proto = Proto::none;
};

struct Port {
    Type type = Type::none;
    unsigned says = 0; // the port that its head names
    std::string name;
    bool link = false;
    std::vector<Interface> interfaces;
};

// Fields of a bus message or a configuration section; numbers as text.
using Fields = std::map<std::string, std::string>;

struct Section {
    std::string name;
    Fields fields;
};

class Oracle {
public:
    explicit Oracle(BoardPlan plan);

    int start(const std::vector<Section> &lans, const std::vector<Section> &wans);
    // Everything but the switch's registers and the kernel is forgotten.
    void die();

    int add(const Fields &fields);
    int del(const std::vector<std::string> &names);
    int enable(const std::vector<std::string> &names, bool enable);
    int config(const Fields &fields);
    int port_add(const std::string &name);
    int port_del(const std::string &name);
    int link_event(unsigned port, bool up);

    Switch sw;
    seam::System kernel;
    std::array<Port, front_ports> ports;
    std::vector<std::string> signals; // as they stand in the trace
    bool two_cpu_ports() const { return plan_.two_cpu_ports; }
    unsigned lan1() const { return *port_of("lan1"); }
    std::string picture() const;

    std::optional<unsigned> port_of(const std::string &name) const;

private:
    struct Master {
        std::string device;
        unsigned cpu;
    };
    Master master(Type type) const;
    unsigned sequence(unsigned port) const;
    Mac port_mac(unsigned port, unsigned on_first_byte) const;
    std::optional<bool> link_of(const std::string &name) const;
    Interface *find(const std::string &name);
    void drop(const Interface *gone);

    int vlan_device(const std::string &lower, unsigned vid, const Mac &mac);
    int vlan_device_gone(const std::string &name);
    int port_own(Type type, int number, unsigned port);
    int vlan_make(Type type, unsigned port, unsigned vlan1, unsigned vlan2);
    int vlan_users(Type type, unsigned vlan1, unsigned vlan2) const;
    int vlan_remove(Type type, unsigned port, unsigned vlan1, unsigned vlan2);
    std::pair<std::string, std::string> bridge_names(const Interface &interface) const;
    int bridge_make(const Interface &interface, bool up);
    int bridge_remove(const Interface &interface);

    Interface *make(const Interface &wanted, Proto proto, bool up);
    int unmake(const std::string &name, Type type);
    int section(Type type, const Section &section);
    int section_wan(Interface *entry, const Section &section, Proto proto);
    int port_back(Type type, unsigned port);

    int fixed(Interface &entry, const Fields &fields, int number);
    int lan_address(Interface &entry, const Fields &fields);
    int dhcp(Interface &entry);
    int pppoe(Interface &entry, const Fields &fields, const std::string &server_field);
    void stop(const Interface &entry);
    int device_up(const Interface &entry);
    int device_down(const Interface &entry);
    int pid_of(const Interface &entry, int &pid);
    void signal(int pid, const std::string &name);
    int port_down(Port &port);
    int port_up(Port &port);
    int wan_config(Interface &entry, const Fields &fields);
    int enable_one(const std::string &name, bool enable, bool link);

    BoardPlan plan_;
    std::set<unsigned> lan_ports_made_, wan_ports_made_;
};

} // namespace model
