// hostile-neighbour: a station on a cable of the router that means harm.
//
// Exit status: 2 for wrong options, 1 when the device cannot be used, else 0.
#include "command_line.h"
#include "modes.h"

#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <stdexcept>

namespace {

constexpr const char *usage =
    "usage: hostile-neighbour [options] random|arp|dhcp|dhcp-server|concentrator DEVICE\n"
    "Floods the cable behind a device with frames, or serves its clients badly.\n\n"
    "  --seed N      other frames (default: 1)\n"
    "  --count N     frames of a flood (default: 10000), sessions of a concentrator\n"
    "  --router MAC  whom a flood is meant for, besides everybody\n"
    "  --help        this text\n";

bool parse_mac(const std::string &text, neighbour::Mac &mac)
{
    return sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1], &mac[2], &mac[3],
                  &mac[4], &mac[5]) == 6;
}

uint32_t number(const std::string &text)
{
    return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 0));
}

} // namespace

int main(int argc, char **argv)
{
    std::string seed = "1";
    std::string count = "10000";
    neighbour::Mac router = neighbour::everybody;
    lab::CommandLine line("hostile-neighbour", usage);
    line.text("seed", seed);
    line.text("count", count);
    line.value("router", [&](const std::string &text) {
        if (!parse_mac(text, router)) {
            line.wrong("no MAC");
        }
    });
    line.parse(argc, argv);
    if (argc - optind != 2) {
        line.wrong("a mode and a device are wanted");
    }
    const std::string mode = argv[optind];
    setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        neighbour::Random random(number(seed));
        const uint32_t times = number(count);
        neighbour::Wire wire(argv[optind + 1]);
        if (mode == "dhcp-server") {
            neighbour::lie_by_dhcp(wire, random);
        } else if (mode == "concentrator") {
            neighbour::garble_pppoe(wire, random, times);
        } else if (mode == "random" || mode == "arp" || mode == "dhcp") {
            neighbour::flood(wire, random, mode, router, times);
        } else {
            line.wrong("no such mode");
        }
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "hostile-neighbour: %s\n", error.what());
        return 1;
    }
    return 0;
}
