#include "plan.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace lab {
namespace {

HostPlan &find_host(Plan &plan, const std::string &name)
{
    auto it = std::find_if(plan.hosts.begin(), plan.hosts.end(),
                           [&](const HostPlan &host) { return host.name == name; });
    if (it == plan.hosts.end()) {
        throw std::runtime_error("no host is named " + name);
    }
    return *it;
}

unsigned number(std::istringstream &in, const char *what, unsigned low, unsigned high)
{
    unsigned value = 0;
    if (!(in >> value) || value < low || value > high) {
        throw std::runtime_error(std::string(what) + " must be " + std::to_string(low) + ".." +
                                 std::to_string(high));
    }
    return value;
}

std::string word(std::istringstream &in, const char *what)
{
    std::string text;
    if (!(in >> text)) {
        throw std::runtime_error(std::string(what) + " is missing");
    }
    return text;
}

std::string rest(std::istringstream &in)
{
    std::string text;
    std::getline(in >> std::ws, text);
    return text;
}

void add_host(Plan &plan, std::istringstream &in)
{
    HostPlan host;
    host.name = word(in, "name");
    host.port = number(in, "port", 0, 4);
    bool taken = host.name == "router" || host.name == "agent" || host.name == "machine";
    for (const HostPlan &other : plan.hosts) {
        taken = taken || other.name == host.name || other.port == host.port;
    }
    if (taken) {
        throw std::runtime_error("name or port of host " + host.name + " is taken");
    }
    plan.hosts.push_back(std::move(host));
}

void add_setting(Plan &plan, std::istringstream &in)
{
    std::string name = word(in, "host");
    std::string key = word(in, "key");
    auto &list = name == "router" ? plan.router_settings : find_host(plan, name).settings;
    list.emplace_back(std::move(key), rest(in));
}

void read_line(Plan &plan, const std::string &line)
{
    std::istringstream in(line);
    std::string what;
    if (!(in >> what) || what.front() == '#') {
        return;
    }
    if (what == "cpu-ports") {
        plan.cpu_ports = number(in, "cpu-ports", 1, 2);
    } else if (what == "host") {
        add_host(plan, in);
    } else if (what == "ip") {
        HostPlan &host = find_host(plan, word(in, "host"));
        host.ip_lines.push_back(rest(in));
    } else if (what == "sysctl") {
        add_setting(plan, in);
    } else if (what == "siblings") {
        for (std::string option; in >> option;) {
            plan.sibling_options.push_back(option);
        }
    } else if (what == "no-daemon") {
        plan.start_daemon = false;
    } else if (what == "daemon-preload") {
        plan.daemon_preload = word(in, "library");
    } else {
        throw std::runtime_error("unknown word " + what);
    }
}

} // namespace

Plan read_plan(const std::string &path)
{
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    Plan plan;
    std::string line;
    for (unsigned at = 1; std::getline(file, line); at++) {
        try {
            read_line(plan, line);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error(path + ":" + std::to_string(at) + ": " + error.what());
        }
    }
    return plan;
}

} // namespace lab
