// Parts of the daemon in process, on the real platform library, in name spaces that tests/bench prepares: a
// board file, a configuration, devices. Prints what bench prints, or does something a number of times so that
// instructions and system calls can be counted.

#include "board/board_map.h"
#include "netintf/device.h"
#include "netintf/registry.h"
#include "netintf/statist.h"
#include "platform/netdev.h"
#include "route/table.h"

#include <fcntl.h>
#include <libubus.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

// No switch is asked here: every port's link is down.
extern "C" int ioctl(int, unsigned long, ...) noexcept
{
    return 0;
}

namespace {

constexpr int round_limit = 20'000;
double ours[round_limit];
double limit[round_limit];
double ratio[round_limit];

double now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double median(double *values, int count)
{
    qsort(values, static_cast<size_t>(count), sizeof(*values), [](const void *a, const void *b) {
        const double left = *static_cast<const double *>(a);
        const double right = *static_cast<const double *>(b);
        return left < right ? -1 : left > right ? 1 : 0;
    });
    return values[count / 2];
}

// An interface for each device "lan1_0", "lan2_1", ... of this name space.
bool interfaces(int count)
{
    if (netbd_lan_wan_init() != 0 || netintf_registry_init() != 0) {
        return false;
    }
    const uint8_t mac[mac_size] = {};
    for (int i = 0; i < count; i++) {
        char name[name_size];
        uint32_t port = 0;
        snprintf(name, sizeof(name), "lan%d_%d", i % 4 + 1, i);
        if (netintf_hwport_get_byname(name, &port) != 0 ||
            netintf_l3intf_init(port, name, intf_type_lan, mac, vlan_none, vlan_none) == nullptr) {
            return false;
        }
    }
    return true;
}

struct uloop_timeout timer;

void sample()
{
    netintf_statist_timer(&timer);
}

bool read_alone()
{
    static char text[1 << 18];
    const int file = open("/proc/net/dev", O_RDONLY | O_CLOEXEC);
    ssize_t got = 0;
    while (file >= 0 && (got = read(file, text, sizeof(text))) > 0) {
    }
    close(file);
    return file >= 0;
}

bool compare_samples(int count, int rounds)
{
    rounds = rounds < round_limit ? rounds : round_limit;
    for (int i = 0; i < rounds; i++) {
        const double start = now();
        if (!read_alone()) {
            return false;
        }
        const double between = now();
        sample();
        ours[i] = now() - between;
        limit[i] = between - start;
        ratio[i] = ours[i] / limit[i];
    }
    printf("sample.%d %.2f %.2f %.3f\n", count, median(ours, rounds), median(limit, rounds),
           median(ratio, rounds));
    return true;
}

bool routes_change(int times,
                   int (*change)(uint32_t, const char *, const char *, const char *, const char *, int))
{
    for (int i = 0; i < times; i++) {
        char destination[name_size];
        snprintf(destination, sizeof(destination), "10.%d.%d.0", i >> 8, i & 0xff);
        if (change(route_cfg_table, destination, "255.255.255.0", "203.0.113.1", nullptr, 10) != 0) {
            return false;
        }
    }
    return true;
}

bool load(int times)
{
    for (int i = 0; i < times; i++) {
        const double start = now();
        if (route_cfg_init() != 0) {
            return false;
        }
        printf("load %.2f\n", now() - start);
    }
    return true;
}

bool answer(const char *question, int number, int times)
{
    const auto is = [question](const char *name) { return strcmp(question, name) == 0; };
    if (is("compare-samples")) {
        return interfaces(number) && compare_samples(number, times);
    }
    if (is("samples")) {
        const bool ready = interfaces(number);
        for (int i = 0; ready && i < times; i++) {
            sample();
        }
        return ready;
    }
    if (is("routes")) {
        return routes_change(number, netlib_rt_add_gw) && routes_change(times, netlib_rt_del_gw);
    }
    return is("load") && load(times);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && answer(argv[1], atoi(argv[2]), atoi(argv[3]))) {
        return 0;
    }
    fprintf(stderr, "bench-parts: failed\n");
    return 1;
}
