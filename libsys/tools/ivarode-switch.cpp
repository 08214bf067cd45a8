// ivarode-switch: shows how the Ethernet switch is programmed, through the same ioctls and registers that the
// daemon uses.

#include "../internal.h"
#include "platform/board.h"
#include "platform/switch_driver.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned port_count = 7;
constexpr unsigned front_ports = 5;
constexpr unsigned entry_count = 16;

constexpr int exit_failure = 1;
constexpr int exit_usage = 2;

struct entry {
    uint32_t vid;
    uint32_t members; // bit n: port n
    uint32_t untag;
};

struct picture {
    uint32_t pvid[front_ports];
    uint32_t status[8]; // as the daemon's status query gives them
    bool untagging;
    entry entries[entry_count];
};

const char help[] =
    "Usage: ivarode-switch [--json]\n"
    "Shows the Ethernet switch: each port's link and default VLAN, and the VLAN table.\n"
    "\n"
    "  --json   the same for programs, as one JSON object\n"
    "  --help   this text\n"
    "\n"
    "Ports 0 to 4 are the front ports, 5 and 6 lead to the CPU. In the VLAN table a member port is\n"
    "shown as u where frames leave it without a tag, as t where they keep it.\n"
    "Reading a port's link takes away its memory of a short loss: the daemon may then miss that\n"
    "loss if it was over within a fifth of a second.\n"
    "\n"
    "Exit status: 0 shown, 1 the switch could not be read, 2 wrong usage.\n";

int read_switch(int fd, uint32_t offset, uint32_t *value)
{
    switch_reg_block block = {offset, 0};
    ifreq request = {};
    strcpy(request.ifr_name, "eth0");
    request.ifr_data = reinterpret_cast<char *>(&block);
    if (ioctl(fd, switch_reg_read, &request) < 0) {
        fprintf(stderr, "ivarode-switch: register 0x%x of the switch behind eth0: %s\n", offset,
                strerror(errno));
        return -1;
    }
    *value = block.value;
    return 0;
}

int read_entry(int fd, unsigned index, entry *out)
{
    uint32_t vids = 0;
    uint32_t members = 0;
    uint32_t untag = 0;
    if (read_switch(fd, switch_vlan_id + 4 * (index / 2), &vids) != 0 ||
        read_switch(fd, switch_vlan_members + 4 * (index / 4), &members) != 0 ||
        read_switch(fd, switch_vlan_untag + 4 * (index / 4), &untag) != 0) {
        return -1;
    }
    *out = {vids >> 12 * (index % 2) & 0xFFF, members >> 8 * (index % 4) & 0x7F,
            untag >> 7 * (index % 4) & 0x7F};
    return 0;
}

int read_pvids(picture *out)
{
    for (unsigned port = 0; port < front_ports; ++port) {
        uint32_t addr = switch_physical_base + switch_pvid + 4 * (port / 2);
        uint32_t value = 0;
        if (mtklib_cpu_reg_rd(addr, &value) != 0) {
            fprintf(stderr, "ivarode-switch: register 0x%08x: %s\n", addr, strerror(errno));
            return -1;
        }
        out->pvid[port] = value >> 12 * (port % 2) & 0xFFF;
    }
    return 0;
}

int read_table(int fd, picture *out)
{
    uint32_t control = 0;
    if (read_switch(fd, switch_untag_control, &control) != 0) {
        return -1;
    }
    out->untagging = (control & switch_untag_enable) != 0;
    for (unsigned index = 0; index < entry_count; ++index) {
        if (read_entry(fd, index, &out->entries[index]) != 0) {
            return -1;
        }
    }
    return 0;
}

int read_picture(picture *out)
{
    libsys::unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        fprintf(stderr, "ivarode-switch: socket: %s\n", strerror(errno));
        return -1;
    }
    if (read_table(fd.get(), out) != 0 || read_pvids(out) != 0) {
        return -1;
    }
    if (knl_send_and_wait_response(knl_port_status, nullptr, 0, out->status, sizeof(out->status), nullptr) !=
        0) {
        fprintf(stderr, "ivarode-switch: the ports' PHYs: %s\n", strerror(errno));
        return -1;
    }
    return 0;
}

bool is_free(const entry &which)
{
    return which.vid == 0 && which.members == 0;
}

unsigned megabits(uint32_t status)
{
    constexpr unsigned speeds[] = {10, 100, 1000, 0};
    return speeds[status >> 1 & 3];
}

void print_ports(const picture &shown, bool colours)
{
    printf("port  link              default VLAN\n");
    for (unsigned port = 0; port < port_count; ++port) {
        if (port >= front_ports) {
            printf("%4u  %-16s  -\n", port, "CPU side");
            continue;
        }
        char link[24] = "down";
        uint32_t status = shown.status[port];
        if (status & 1) {
            snprintf(link, sizeof(link), "%u Mbit/s %s", megabits(status), status & 8 ? "full" : "half");
        }
        const char *colour = !colours ? "" : status & 1 ? "\033[32m" : "\033[31m";
        printf("%4u  %s%-16s%s  %u\n", port, colour, link, colours ? "\033[0m" : "", shown.pvid[port]);
    }
}

void print_table(const picture &shown)
{
    printf("\nentry  VLAN  ports 0 1 2 3 4 5 6\n");
    bool any = false;
    for (unsigned index = 0; index < entry_count; ++index) {
        const entry &each = shown.entries[index];
        if (is_free(each)) {
            continue;
        }
        any = true;
        printf("%5u  %4u       ", index, each.vid);
        for (unsigned port = 0; port < port_count; ++port) {
            bool member = (each.members >> port & 1) != 0;
            bool bare = shown.untagging && ((each.untag >> port & 1) != 0);
            printf(" %c", !member ? '.' : bare ? 'u' : 't');
        }
        printf("\n");
    }
    if (!any) {
        printf("  (no entry in use)\n");
    }
    printf("untagging is %s\n", shown.untagging ? "on" : "off");
}

void print_port_list(const char *name, uint32_t ports)
{
    printf("\"%s\":[", name);
    const char *separator = "";
    for (unsigned port = 0; port < port_count; ++port) {
        if (ports >> port & 1) {
            printf("%s%u", separator, port);
            separator = ",";
        }
    }
    printf("]");
}

void print_json(const picture &shown)
{
    printf("{\"ports\":[");
    for (unsigned port = 0; port < front_ports; ++port) {
        uint32_t status = shown.status[port];
        printf("%s{\"port\":%u,\"link\":%s,\"speed\":%u,\"full_duplex\":%s,\"pvid\":%u}", port ? "," : "",
               port, status & 1 ? "true" : "false", status & 1 ? megabits(status) : 0,
               status & 8 ? "true" : "false", shown.pvid[port]);
    }
    printf("],\"untagging\":%s,\"vlans\":[", shown.untagging ? "true" : "false");
    const char *separator = "";
    for (unsigned index = 0; index < entry_count; ++index) {
        const entry &each = shown.entries[index];
        if (!is_free(each)) {
            printf("%s{\"entry\":%u,\"vid\":%u,", separator, index, each.vid);
            print_port_list("members", each.members);
            printf(",");
            print_port_list("untag", each.untag);
            printf("}");
            separator = ",";
        }
    }
    printf("]}\n");
}

} // namespace

int main(int argc, char **argv)
{
    bool json = argc == 2 && strcmp(argv[1], "--json") == 0;
    if (argc == 2 && !strcmp(argv[1], "--help")) {
        fputs(help, stdout);
        return 0;
    }
    if (argc > 1 && !json) {
        fprintf(stderr, "ivarode-switch: unknown argument \"%s\"; --help tells what there is\n",
                argv[argc > 2 ? 2 : 1]);
        return exit_usage;
    }
    picture shown = {};
    if (read_picture(&shown) != 0) {
        return exit_failure;
    }
    if (json) {
        print_json(shown);
    } else {
        print_ports(shown, isatty(STDOUT_FILENO) != 0);
        print_table(shown);
    }
    return fflush(stdout) == 0 ? 0 : exit_failure;
}
