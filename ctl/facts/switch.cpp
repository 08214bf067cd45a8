#include "facts/switch.h"

#include "gather.h"
#include "platform/board.h"
#include "platform/switch_driver.h"
#include "report.h"

#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace ctl {

namespace {

constexpr unsigned port_count = 7;
constexpr unsigned entry_count = 16;

bool read_register(int fd, uint32_t offset, uint32_t *value)
{
    switch_reg_block block = {offset, 0};
    ifreq request = {};
    strcpy(request.ifr_name, "eth0");
    request.ifr_data = reinterpret_cast<char *>(&block);
    if (ioctl(fd, switch_reg_read, &request) < 0) {
        complain("register 0x%x of the switch behind eth0: %s", offset, strerror(errno));
        return false;
    }
    *value = block.value;
    return true;
}

void append_ports(uint32_t bits, json_object *to)
{
    for (unsigned port = 0; port < port_count; ++port) {
        if ((bits >> port & 1) != 0) {
            append(to, int64_t{port});
        }
    }
}

bool add_entry(int fd, unsigned index, json_object *entries)
{
    uint32_t vids = 0;
    uint32_t members = 0;
    uint32_t untag = 0;
    if (!read_register(fd, switch_vlan_id + 4 * (index / 2), &vids) ||
        !read_register(fd, switch_vlan_members + 4 * (index / 4), &members) ||
        !read_register(fd, switch_vlan_untag + 4 * (index / 4), &untag)) {
        return false;
    }
    const uint32_t vid = vids >> 12 * (index % 2) & 0xFFF;
    const uint32_t ports = members >> 8 * (index % 4) & 0x7F;
    if (vid != 0 || ports != 0) {
        json_object *made = append_table(entries);
        put_number(made, "entry", index);
        put_number(made, "vid", vid);
        append_ports(ports, put_list(made, "members"));
        append_ports(untag >> 7 * (index % 4) & 0x7F, put_list(made, "untag"));
    }
    return true;
}

bool add_table(json_object *facts)
{
    const libsys::unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    uint32_t control = 0;
    if (!fd) {
        complain("socket: %s", strerror(errno));
        return false;
    }
    if (!read_register(fd.get(), switch_untag_control, &control)) {
        return false;
    }
    put_flag(facts, "untagging", (control & switch_untag_enable) != 0);
    json_object *entries = put_list(facts, "vlans");
    for (unsigned index = 0; index < entry_count; ++index) {
        if (!add_entry(fd.get(), index, entries)) {
            return false;
        }
    }
    return true;
}

bool add_port(unsigned port, uint32_t status, json_object *ports)
{
    constexpr unsigned speeds[] = {10, 100, 1000, 0};
    const uint32_t addr = switch_physical_base + switch_pvid + 4 * (port / 2);
    uint32_t pvids = 0;
    if (mtklib_cpu_reg_rd(addr, &pvids) != 0) {
        complain("register 0x%08x: %s", addr, strerror(errno));
        return false;
    }
    const bool link = (status & 1) != 0;
    json_object *made = append_table(ports);
    put_number(made, "port", port);
    put_flag(made, "link", link);
    put_number(made, "speed", link ? speeds[status >> 1 & 3] : 0);
    put_flag(made, "full_duplex", (status & 8) != 0);
    put_number(made, "pvid", pvids >> 12 * (port % 2) & 0xFFF);
    return true;
}

bool add_ports(json_object *facts)
{
    uint32_t status[8] = {};
    if (knl_send_and_wait_response(knl_port_status, nullptr, 0, status, sizeof(status), nullptr) != 0) {
        complain("the ports' PHYs: %s", strerror(errno));
        return false;
    }
    json_object *ports = put_list(facts, "ports");
    for (unsigned port = 0; port < front_ports; ++port) {
        if (!add_port(port, status[port], ports)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool read_switch(json_object *facts)
{
    if (add_ports(facts) && add_table(facts)) {
        return true;
    }
    for (const char *key : {"ports", "untagging", "vlans"}) {
        json_object_object_del(facts, key);
    }
    return false;
}

int gather_switch(const words & /*given*/, json_object *facts)
{
    return read_switch(facts) ? done : failed;
}

} // namespace ctl
