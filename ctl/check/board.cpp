#include "check/board.h"

#include "libsys/board_file.h"
#include "libsys/places.h"
#include "platform/board.h"
#include "report.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace ctl {

namespace {

constexpr const char *ends = "the start ends";
constexpr uint8_t role_lan = 1;
constexpr uint8_t role_wan = 2;
constexpr int front_port_count = 5;
constexpr int last_entry_port =
    5; // entry 5 of the VLAN table and VLAN 4095 are the last that the switch takes
constexpr uint32_t two_cpu_ports = 0xc7a6e2d1;

// The library's reader reports "file: key: reason".
struct listener {
    findings *found;
    const char *path;
};
listener listening;

void take_report(const char *line)
{
    const size_t length = strlen(listening.path);
    const char *key = strncmp(line, listening.path, length) == 0 ? line + length + 2 : line;
    const char *reason = strstr(key, ": ");
    char name[80];
    snprintf(name, sizeof(name), "%.*s", reason != nullptr ? static_cast<int>(reason - key) : 0, key);
    listening.found->add({listening.path, *name != '\0' ? name : nullptr}, effect::ends, ends, "%s",
                         reason != nullptr ? reason + 2 : key);
}

void number_ports(board_facts &board)
{
    int wans = 0;
    for (int i = 0; i < 16; ++i) {
        board.lan_port[i] = board.wan_port[i] = -1;
    }
    for (int i = 15; i >= 0; --i) {
        const netbd_ether *ether = sys_bdinfo_ether_get(static_cast<uint32_t>(i));
        if (ether != nullptr && (ether->role & role_lan) != 0) {
            board.lan_port[i] = ether->hw_port;
        }
        if (ether != nullptr && (ether->role & role_wan) != 0) {
            board.wan_port[wans++] = ether->hw_port;
        }
    }
}

bool names_device(const libsys::board_file &file, const char *name)
{
    json_object *ports = file.find("switch.switch0.ports");
    bool found = false;
    for (json_object *port : items(ports)) {
        found = found || is(port, "device", name);
    }
    return found;
}

void look_at_lans(const char *path, const board_facts &board, findings &found)
{
    constexpr const char *key = "switch.switch0.ports";
    if (board.lan_port[0] < 0) {
        found.add({path, key}, effect::ends, ends, "no port is LAN 1");
        return;
    }
    if (board.lan_port[0] > last_entry_port) {
        found.add({path, key}, effect::ends, ends, "LAN 1 is port %d, which has no VLAN", board.lan_port[0]);
    }
    bool gap = false;
    for (int i = 0; i < 16; ++i) {
        const int port = board.lan_port[i];
        gap = gap || port < 0;
        if (port >= 0 && gap) {
            found.add({path, key}, effect::broken, "it is left out of the shared VLAN",
                      "LAN %d follows a number that no port has", i + 1);
        } else if (port >= front_port_count) {
            found.add({path, key}, effect::broken, "no section of the configuration may name it",
                      "LAN %d is port %d, which is no front port", i + 1, port);
        }
    }
}

} // namespace

bool read_board(const char *path, findings &found, board_facts &board)
{
    if (access(path, R_OK) != 0) {
        complain("%s: %s", path, strerror(errno));
        return false;
    }
    libsys::board_path = path;
    listening = {&found, path};
    const reports_to here(take_report);
    if (sys_bdinfo_init() != 0) {
        return true;
    }
    libsys::board_file file;
    file.load();
    board.known = true;
    board.two_cpu_ports = sys_bdinfo_cpuid_get() == two_cpu_ports;
    board.has_second_device = names_device(file, "eth1");
    number_ports(board);
    if (board.two_cpu_ports && !board.has_second_device) {
        found.add({path, "switch.switch0.ports"}, effect::ends,
                  "the start ends where there is no such device",
                  "a board with two CPU ports names no device eth1");
    }
    look_at_lans(path, board, found);
    return true;
}

} // namespace ctl
