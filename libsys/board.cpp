// Board information out of the board file: which switch ports are in front, the base MAC, the CPU identifier.
#include "board_file.h"
#include "exports.h"
#include "internal.h"

#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

using libsys::board_error;
using libsys::board_number;
using libsys::member;

constexpr size_t ether_count = 16;
constexpr int64_t last_switch_port = 7;
constexpr uint8_t role_lan = 1;
constexpr uint8_t role_wan = 2;

constexpr const char *ports_key = "switch.switch0.ports";
constexpr const char *cpuid_key = "ivarode.cpuid";

struct board_info {
    netbd_ether ether[ether_count];
    bool present[ether_count];
    uint8_t mac[6];
    uint32_t cpuid;
};

board_info board;

// A place for a port that names none: LAN-capable ones from the front, WAN-only ones from the back, so that
// LAN and WAN numbers follow the order of the file.
int free_place(const board_info &info, uint8_t role)
{
    for (size_t i = 0; i < ether_count; ++i) {
        size_t index = role == role_wan ? ether_count - 1 - i : i;
        if (!info.present[index]) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

bool port_taken(const board_info &info, int64_t number)
{
    for (size_t i = 0; i < ether_count; ++i) {
        if (info.present[i] && info.ether[i].hw_port == number) {
            return true;
        }
    }
    return false;
}

uint8_t role_of(json_object *value)
{
    const char *text = json_object_is_type(value, json_type_string) ? json_object_get_string(value) : "";
    if (strcmp(text, "lan") == 0) {
        return role_lan;
    }
    if (strcmp(text, "wan") == 0) {
        return role_wan;
    }
    return strcmp(text, "lan,wan") == 0 ? role_lan | role_wan : 0;
}

// Takes a front port when it is its turn: those with a given place first.
int take_port(board_info &info, json_object *port, size_t position, bool with_index)
{
    char key[64];
    auto key_of = [&](const char *name) {
        snprintf(key, sizeof(key), "%s[%zu]%s%s", ports_key, position, *name ? "." : "", name);
        return key;
    };
    json_object *role_value = member(port, "role");
    json_object *index_value = member(port, "index");
    bool cpu_port = member(port, "device") != nullptr;
    if (cpu_port == (role_value != nullptr)) {
        return board_error(key_of(""), "needs either \"role\" or \"device\"");
    }
    if (cpu_port || (index_value != nullptr) != with_index) {
        return 0;
    }
    uint8_t role = role_of(role_value);
    if (role == 0) {
        return board_error(key_of("role"), "is not \"lan\", \"wan\" or \"lan,wan\"");
    }
    int64_t number = 0;
    if (int error = board_number(key_of("num"), member(port, "num"), 0, last_switch_port, number)) {
        return error;
    }
    if (port_taken(info, number)) {
        return board_error(key_of("num"), "is the number of another port too");
    }
    int64_t index = free_place(info, role);
    if (index_value != nullptr) {
        if (int error = board_number(key_of("index"), index_value, 0, ether_count - 1, index)) {
            return error;
        }
        if (info.present[index]) {
            return board_error(key_of("index"), "is the index of another port too");
        }
    } else if (index < 0) {
        return board_error(key_of(""), "is one port too many");
    }
    info.ether[index] = {role, static_cast<uint8_t>(number)};
    info.present[index] = true;
    return 0;
}

int read_ports(const libsys::board_file &file, board_info &info)
{
    json_object *ports = file.find(ports_key);
    if (!json_object_is_type(ports, json_type_array)) {
        return board_error(ports_key, ports != nullptr ? "is not an array" : "is missing");
    }
    for (bool with_index : {true, false}) {
        for (size_t i = 0; i < json_object_array_length(ports); ++i) {
            if (int error = take_port(info, json_object_array_get_idx(ports, i), i, with_index)) {
                return error;
            }
        }
    }
    return 0;
}

bool parse_mac(const char *text, uint8_t (&mac)[6])
{
    for (size_t i = 0; i < sizeof(mac); ++i) {
        unsigned byte = 0;
        for (int digit = 0; digit < 2; digit++, text++) {
            unsigned lower = static_cast<unsigned char>(*text) | 0x20u;
            if (*text >= '0' && *text <= '9') {
                byte = byte * 16 + static_cast<unsigned>(*text - '0');
            } else if (lower >= 'a' && lower <= 'f') {
                byte = byte * 16 + (lower - 'a' + 10);
            } else {
                return false;
            }
        }
        mac[i] = static_cast<uint8_t>(byte);
        if (*text != (i + 1 < sizeof(mac) ? ':' : '\0')) {
            return false;
        }
        text++;
    }
    return true;
}

int device_mac(const char *name, uint8_t (&mac)[6])
{
    libsys::unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    strncpy(request.ifr_name, name, sizeof(request.ifr_name) - 1);
    if (!fd || libsys::retry_eintr([&] { return ioctl(fd.get(), SIOCGIFHWADDR, &request); }) != 0) {
        int error = errno;
        board_error("system.label_macaddr", "is missing, and %s has no MAC: %s", name, strerror(error));
        return error;
    }
    memcpy(mac, request.ifr_hwaddr.sa_data, sizeof(mac));
    return 0;
}

int read_mac(const libsys::board_file &file, board_info &info)
{
    for (const char *key : {"system.label_macaddr", "network.lan.macaddr"}) {
        if (json_object *value = file.find(key)) {
            const char *text =
                json_object_is_type(value, json_type_string) ? json_object_get_string(value) : "";
            return parse_mac(text, info.mac) ? 0 : board_error(key, "is not a MAC address");
        }
    }
    return device_mac("eth0", info.mac);
}

int read_cpuid(const libsys::board_file &file, board_info &info)
{
    json_object *value = file.find(cpuid_key);
    if (value == nullptr) {
        return 0;
    }
    const char *text = json_object_is_type(value, json_type_string) ? json_object_get_string(value) : "";
    const char *digits = strncmp(text, "0x", 2) == 0 || strncmp(text, "0X", 2) == 0 ? text + 2 : text;
    size_t count = strspn(digits, "0123456789abcdefABCDEF");
    if (count == 0 || count > 8 || digits[count] != '\0') {
        return board_error(cpuid_key, "is not a hexadecimal text of up to 8 digits");
    }
    info.cpuid = static_cast<uint32_t>(strtoul(digits, nullptr, 16));
    return 0;
}

} // namespace

int sys_bdinfo_init(void)
{
    libsys::board_file file;
    board_info info{};
    int error = file.load();
    if (error == 0) {
        error = read_ports(file, info);
    }
    if (error == 0) {
        error = read_mac(file, info);
    }
    if (error == 0) {
        error = read_cpuid(file, info);
    }
    if (error != 0) {
        return libsys::fail(error, "sys_bdinfo_init", "%s", libsys::board_path);
    }
    board = info;
    return 0;
}

const uint8_t *sys_bdinfo_macbase_get(void)
{
    return board.mac;
}

uint32_t sys_bdinfo_cpuid_get(void)
{
    return board.cpuid;
}

const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index)
{
    return index < ether_count && board.present[index] ? &board.ether[index] : nullptr;
}
