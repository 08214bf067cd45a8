#pragma once
// What one lab consists of, read from the file "plan" of its folder. One thing per line:
//   cpu-ports N             CPU-side ports of the switch (1 or 2)
//   host NAME PORT          a host on front port PORT (0..4)
//   ip NAME WORDS           a line for ip(8) in that host, in order, after its "eth0" and "lo" are up
//   sysctl NAME KEY VALUE   a kernel setting in that host ("router" is the router itself)
//   siblings WORDS          further options for lab-siblings
//   no-daemon               leave the daemon to be started by hand
//   daemon-preload LIBRARY  put a library of a test in front of the daemon's, before the emulated hardware's
// Empty lines and lines that begin with "#" are skipped.

#include <string>
#include <utility>
#include <vector>

namespace lab {

struct HostPlan {
    std::string name;
    unsigned port = 0;
    std::vector<std::string> ip_lines;
    std::vector<std::pair<std::string, std::string>> settings;
};

struct Plan {
    unsigned cpu_ports = 1;
    bool start_daemon = true;
    std::string daemon_preload;
    std::vector<std::string> sibling_options;
    std::vector<std::pair<std::string, std::string>> router_settings;
    std::vector<HostPlan> hosts;
};

// Throws std::runtime_error that names file, line and reason.
Plan read_plan(const std::string &path);

} // namespace lab
