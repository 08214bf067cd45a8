// Addresses, clients, and what a port's link does to them.

#include "oracle.h"

namespace model {

namespace {

constexpr int device_error = -13;
constexpr int proto_error = -17;
const std::string nowhere = "0.0.0.0";

const std::string *field(const Fields &fields, const std::string &name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? nullptr : &found->second;
}

std::string pid_file(const Interface &entry)
{
    return "/var/run/udhcpc-" + entry.name + ".pid";
}

std::string device_of(const Interface &entry)
{
    return entry.name + (entry.proto == Proto::pppoe ? "_pe" : "");
}

} // namespace

int Oracle::fixed(Interface &entry, const Fields &fields, int number)
{
    entry.proto = Proto::fixed;
    const std::string *ip = field(fields, "ipaddr");
    const std::string *mask = field(fields, "netmask");
    const std::string *gateway = field(fields, "gateway");
    if (ip != nullptr) {
        entry.ip = *ip;
        if (const int error = kernel.address_set(entry.name, *ip); error != 0) {
            return error;
        }
    }
    if (mask != nullptr && *mask != nowhere && (ip == nullptr || *ip != nowhere)) {
        entry.mask = *mask;
        if (const int error = kernel.mask_set(entry.name, *mask); error != 0) {
            return error;
        }
    }
    if (gateway != nullptr && *gateway != nowhere) {
        entry.gateway = *gateway;
        kernel.gateway_add(number, *gateway, entry.name, number);
        entry.number = number;
    }
    return 0;
}

int Oracle::lan_address(Interface &entry, const Fields &fields)
{
    Fields without = fields;
    without.erase("gateway");
    return fixed(entry, without, -1);
}

int Oracle::dhcp(Interface &entry)
{
    const std::string line = "/sbin/udhcpc  -t 0 -i " + entry.name + " -s /lib/ivarode/empty.sh -C -p " +
                             pid_file(entry) + " -f -m " + std::to_string(entry.number);
    const int error = kernel.client_start("dhcp", entry.name, line, 0);
    if (error == 0) {
        entry.proto = Proto::dhcp;
    }
    return error;
}

int Oracle::pppoe(Interface &entry, const Fields &fields, const std::string &server_field)
{
    const auto item = [&](const std::string &key, const std::string &name) {
        const std::string *value = field(fields, name);
        return (value == nullptr ? "" : key + *value) + " ";
    };
    const std::string line =
        "/usr/sbin/pppd nodetach ipparam 'pppoec," + std::to_string(entry.number) + "' ifname " + entry.name +
        "  +ipv6  nodefaultroute  usepeerdns  persist  maxfail  0 " + item("user ", "username") +
        item("password ", "password") + "mtu 1492 mru 1492 plugin  rp-pppoe.so " +
        item("rp_pppoe_service ", server_field) + "nic-" + entry.name + "_pe ";
    const int error = kernel.client_start("pppoe", entry.name, line, 0);
    if (error == 0) {
        entry.proto = Proto::pppoe;
    }
    return error;
}

void Oracle::stop(const Interface &entry)
{
    if (entry.proto == Proto::pppoe) {
        kernel.client_stop("pppoe", entry.name);
    } else if (kernel.address_set(entry.name, nowhere) == 0 && entry.proto == Proto::dhcp) {
        kernel.client_stop("dhcp", entry.name);
    }
    kernel.row_delete(entry.name);
}

int Oracle::device_up(const Interface &entry)
{
    return kernel.up(device_of(entry));
}

int Oracle::device_down(const Interface &entry)
{
    return kernel.down(device_of(entry));
}

int Oracle::pid_of(const Interface &entry, int &pid)
{
    return kernel.client_pid(pid_file(entry), &pid);
}

void Oracle::signal(int pid, const std::string &name)
{
    signals.push_back("kill(" + std::to_string(pid) + ", " + name + ") = 0");
}

int Oracle::port_down(Port &port)
{
    port.link = false;
    if (port.says == lan1()) {
        return 0;
    }
    for (Interface &entry : port.interfaces) {
        if (entry.proto == Proto::fixed && port.type == Type::wan) {
            kernel.policy_del(entry.name, entry.number);
        } else if (entry.proto == Proto::dhcp) {
            if (kernel.address_set(entry.name, nowhere) != 0) {
                return device_error;
            }
            int pid = 0;
            if (pid_of(entry, pid) != 0) {
                return proto_error;
            }
            signal(pid, "SIGUSR2");
        }
        device_down(entry);
    }
    return 0;
}

int Oracle::port_up(Port &port)
{
    port.link = true;
    if (port.says == lan1()) {
        return 0;
    }
    for (Interface &entry : port.interfaces) {
        if (!entry.enable) {
            continue;
        }
        device_up(entry);
        if (entry.proto == Proto::fixed && port.type == Type::wan && entry.gateway != nowhere) {
            kernel.gateway_add(entry.number, entry.gateway, entry.name, entry.number);
            kernel.policy_del(entry.name, entry.number);
            kernel.policy_add(entry.name, entry.number);
        } else if (entry.proto == Proto::dhcp) {
            int pid = 0;
            if (pid_of(entry, pid) != 0) {
                return proto_error;
            }
            signal(pid, "SIGUSR1");
        }
    }
    return 0;
}

int Oracle::link_event(unsigned port, bool up)
{
    if (port >= front_ports) {
        return -1;
    }
    return (up ? port_up(ports[port]) : port_down(ports[port])) == 0 ? 0 : -1;
}

int Oracle::enable_one(const std::string &name, bool enable, bool link)
{
    Interface *entry = find(name);
    if (entry == nullptr) {
        return 2;
    }
    const bool on = enable && link;
    if ((on ? device_up(*entry) : device_down(*entry)) != 0) {
        return 1;
    }
    entry->enable = enable;
    if (entry->proto == Proto::fixed && entry->type == Type::wan) {
        kernel.policy_del(name, entry->number);
        if (on && entry->gateway != nowhere) {
            kernel.gateway_add(entry->number, entry->gateway, name, entry->number);
            kernel.policy_add(name, entry->number);
        }
    } else if (entry->proto == Proto::dhcp) {
        if (!on && kernel.address_set(name, nowhere) != 0) {
            return device_error;
        }
        int pid = 0;
        if (pid_of(*entry, pid) != 0) {
            return on ? 1 : proto_error;
        }
        signal(pid, on ? "SIGUSR1" : "SIGUSR2");
    }
    return 0;
}

} // namespace model
