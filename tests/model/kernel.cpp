#include "kernel.h"

#include <cerrno>
#include <cstdio>

namespace model {

namespace {

constexpr size_t device_name_max = 15;
constexpr int refusal = -EIO;
constexpr int first_pid = 1001;
const std::string pid_file_begin = "/var/run/udhcpc-";
const std::string pid_file_end = ".pid";

std::string list(std::initializer_list<std::string> words)
{
    std::string out;
    for (const std::string &word : words) {
        out += (out.empty() ? "" : " ") + word;
    }
    return out;
}

} // namespace

std::string text(const Mac &mac)
{
    char out[18];
    std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return out;
}

void Kernel::clear()
{
    devices_.clear();
    gateways_.clear();
    rules_.clear();
    rows_.clear();
    clients_.clear();
    asked_.clear();
    refuse_ = 0;
    devices_["eth0"].mac = {0x02, 0, 0, 0, 0, 1};
    devices_["eth1"].mac = {0x02, 0, 0, 0, 0, 2};
    next_pid_ = first_pid;
}

int Kernel::ask(const std::string &request, int result)
{
    asked_.push_back(request + " = " + std::to_string(result));
    return result;
}

bool Kernel::refused()
{
    return refuse_ != 0 && --refuse_ == 0;
}

int Kernel::change(const std::string &request, const std::string &name, auto change)
{
    if (refused()) {
        return ask(request, refusal);
    }
    const auto found = devices_.find(name);
    return ask(request, found == devices_.end() ? -ENODEV : change(found->second));
}

void Kernel::remove(const std::string &name)
{
    std::vector<std::string> above;
    for (auto &[other, device] : devices_) {
        if (device.lower == name) {
            above.push_back(other);
        }
        if (device.bridge == name) {
            device.bridge.clear();
        }
    }
    devices_.erase(name);
    for (const std::string &other : above) {
        remove(other);
    }
}

int Kernel::vlan_create(const std::string &master, int vid)
{
    const std::string name = master + "." + std::to_string(vid);
    return change(list({"vlan", name}), master, [&](const Device &lower) {
        if (vid < 1 || vid > 4094 || name.size() > device_name_max) {
            return -EINVAL;
        }
        if (const auto there = devices_.find(name); there != devices_.end()) {
            return there->second.lower == master && there->second.vid == vid ? 0 : -EEXIST;
        }
        Device device;
        device.kind = Device::Kind::vlan;
        device.lower = master;
        device.vid = vid;
        device.mac = lower.mac;
        devices_[name] = device;
        return 0;
    });
}

int Kernel::vlan_delete(const std::string &name)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        remove(name);
    }
    return ask(list({"vlan-delete", name}), result);
}

int Kernel::mac_set(const std::string &name, const Mac &mac)
{
    return change(list({"mac", name, text(mac)}), name, [&](Device &device) {
        device.mac = mac;
        return 0;
    });
}

int Kernel::mac_get(const std::string &name, Mac &mac)
{
    return change(list({"mac?", name}), name, [&](const Device &device) {
        mac = device.mac;
        return 0;
    });
}

int Kernel::up(const std::string &name)
{
    return change(list({"up", name}), name, [](Device &device) {
        device.up = true;
        return 0;
    });
}

int Kernel::down(const std::string &name)
{
    return change(list({"down", name}), name, [](Device &device) {
        device.up = false;
        return 0;
    });
}

int Kernel::bridge_create(const std::string &name)
{
    int result = refused() ? refusal : 0;
    if (result == 0 && name.size() > device_name_max) {
        result = -EINVAL;
    }
    if (result == 0) {
        if (const auto there = devices_.find(name); there == devices_.end()) {
            devices_[name].kind = Device::Kind::bridge;
        } else if (there->second.kind != Device::Kind::bridge) {
            result = -EEXIST;
        }
    }
    return ask(list({"bridge", name}), result);
}

int Kernel::bridge_delete(const std::string &name)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        remove(name);
    }
    return ask(list({"bridge-delete", name}), result);
}

int Kernel::bridge_join(const std::string &bridge, const std::string &member)
{
    return change(list({"join", bridge, member}), member, [&](Device &device) {
        const auto found = devices_.find(bridge);
        if (found == devices_.end() || found->second.kind != Device::Kind::bridge) {
            return -ENODEV;
        }
        if (!device.bridge.empty() && device.bridge != bridge) {
            return -EBUSY;
        }
        device.bridge = bridge;
        return 0;
    });
}

int Kernel::bridge_leave(const std::string &bridge, const std::string &member)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        if (const auto found = devices_.find(member);
            found != devices_.end() && found->second.bridge == bridge) {
            found->second.bridge.clear();
        }
    }
    return ask(list({"leave", bridge, member}), result);
}

int Kernel::address_set(const std::string &name, const std::string &ip)
{
    return change(list({"ip", name, ip}), name, [&](Device &device) {
        const bool none = ip == "0.0.0.0";
        if (none || ip != device.ip) {
            device.mask.clear();
        }
        device.ip = none ? "" : ip;
        return 0;
    });
}

int Kernel::mask_set(const std::string &name, const std::string &mask)
{
    return change(list({"mask", name, mask}), name, [&](Device &device) {
        if (device.ip.empty()) {
            return -EADDRNOTAVAIL;
        }
        device.mask = mask;
        return 0;
    });
}

int Kernel::gateway_add(int number, const std::string &gateway, const std::string &name)
{
    return change(list({"gateway", name, std::to_string(number), gateway}), name, [&](const Device &) {
        gateways_[{name, number}] = gateway;
        return 0;
    });
}

int Kernel::gateway_del(int number, const std::string &gateway, const std::string &name)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        gateways_.erase({name, number});
    }
    return ask(list({"gateway-delete", name, std::to_string(number), gateway}), result);
}

int Kernel::rule_add(const std::string &name, int number)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        rules_.insert({name, number});
    }
    return ask(list({"rule", name, std::to_string(number)}), result);
}

int Kernel::rule_del(const std::string &name, int number)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        rules_.erase({name, number});
    }
    return ask(list({"rule-delete", name, std::to_string(number)}), result);
}

int Kernel::row_insert(const std::vector<std::string> &columns)
{
    std::string request = "row";
    for (const std::string &column : columns) {
        request += " " + column;
    }
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        rows_[columns.front()] = columns;
    }
    return ask(request, result);
}

int Kernel::row_delete(const std::string &name)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        rows_.erase(name);
    }
    return ask(list({"row-delete", name}), result);
}

int Kernel::client_start(const std::string &service, const std::string &name, const std::string &line)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        auto &client = clients_[service + " " + name];
        if (client.first != line) {
            client = {line, next_pid_++};
        }
    }
    return ask(list({"client", service, name, line}), result);
}

int Kernel::client_stop(const std::string &service, const std::string &name)
{
    const int result = refused() ? refusal : 0;
    if (result == 0) {
        clients_.erase(service + " " + name);
    }
    return ask(list({"client-stop", service, name}), result);
}

int Kernel::client_pid(const std::string &pid_file, int &pid)
{
    const size_t begin = pid_file_begin.size();
    const std::string name =
        pid_file.size() < begin ? "" : pid_file.substr(begin, pid_file.size() - begin - pid_file_end.size());
    int result = refused() ? refusal : 0;
    if (const auto found = clients_.find("dhcp " + name); result == 0 && found == clients_.end()) {
        result = -ESRCH;
    } else if (result == 0) {
        pid = found->second.second;
    }
    return ask(list({"pid", pid_file}), result);
}

size_t Kernel::objects() const
{
    return devices_.size() + gateways_.size() + rules_.size() + rows_.size() + clients_.size();
}

std::string Kernel::picture() const
{
    std::string out;
    for (const auto &[name, device] : devices_) {
        out += list({"device", name, device.kind == Device::Kind::bridge ? "bridge" : device.lower,
                     device.up ? "up" : "down", text(device.mac), "in", device.bridge, "address", device.ip,
                     device.mask}) +
               "\n";
    }
    for (const auto &[key, gateway] : gateways_) {
        out += list({"gateway", key.first, std::to_string(key.second), gateway}) + "\n";
    }
    for (const auto &[name, number] : rules_) {
        out += list({"rule", name, std::to_string(number)}) + "\n";
    }
    for (const auto &[name, columns] : rows_) {
        out += "row";
        for (const std::string &column : columns) {
            out += " " + column;
        }
        out += "\n";
    }
    for (const auto &[name, client] : clients_) {
        out += list({"client", name, client.first, std::to_string(client.second)}) + "\n";
    }
    return out;
}

} // namespace model
