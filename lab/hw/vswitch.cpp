// vswitch: the emulated Ethernet switch of the lab. See usage for its options.
//
// Exit status: 0 after SIGTERM or SIGINT, 1 when something could not be set up (reported on standard error),
// 2 for wrong options. Prints "ready" on standard output when devices and control socket exist.
#include "command_line.h"
#include "control_server.h"
#include "mapped_file.h"
#include "virtual_switch.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/epoll.h>
#include <sys/signalfd.h>

namespace {

// How long a PHY that was powered down over its management bus keeps its far end's carrier.
constexpr long link_poll_ms = 20;
constexpr unsigned polls_per_second = 1000 / link_poll_ms;

struct Options {
    std::string regs;
    std::string phys;
    std::string control;
    unsigned cpu_ports = 1;
    bool gigabit = false;
    bool taps = true;
};

constexpr const char *usage =
    "usage: vswitch --regs FILE --phys FILE [options]\n"
    "Forwards Ethernet frames between TAP devices port0..port4 and eth0 (eth1), as the\n"
    "switch registers in FILE and the emulated PHYs say.\n\n"
    "  --regs FILE      register file, laid out as physical memory; made if absent\n"
    "  --phys FILE      state of the five PHYs; made if absent\n"
    "  --control PATH   serve commands on this UNIX socket: link, power, status, mac, flush, capture\n"
    "  --cpu-ports N    1: eth0 is switch port 6; 2: and eth1 is switch port 5 (default 1)\n"
    "  --phy-speed N    100 or 1000: the best the PHYs can do (default 100)\n"
    "  --no-tap         make no devices (control socket only)\n"
    "  --help           this text\n";

Options parse(int argc, char **argv)
{
    Options options;
    lab::CommandLine line("vswitch", usage);
    line.text("regs", options.regs);
    line.text("phys", options.phys);
    line.text("control", options.control);
    line.value("cpu-ports", [&](const std::string &value) {
        if (value != "1" && value != "2") {
            line.wrong("--cpu-ports is 1 or 2");
        }
        options.cpu_ports = value == "2" ? 2 : 1;
    });
    line.value("phy-speed", [&](const std::string &value) {
        if (value != "100" && value != "1000") {
            line.wrong("--phy-speed is 100 or 1000");
        }
        options.gigabit = value == "1000";
    });
    line.flag("no-tap", options.taps, false);
    if (!line.parse(argc, argv) || options.regs.empty() || options.phys.empty()) {
        line.wrong("--regs and --phys are needed, and nothing but options");
    }
    return options;
}

bool map(lab::MappedFile &file, const std::string &path, uint32_t offset, size_t length)
{
    const int result = file.open(path.c_str(), offset, length, true);
    if (result < 0) {
        fprintf(stderr, "vswitch: cannot map %s: %s\n", path.c_str(), strerror(-result));
    }
    return result == 0;
}

// PHYs that are in use already keep their state: a switch that is restarted finds the cables as they were.
void power_on(lab::PhyFile &phys, bool gigabit)
{
    if (phys.magic.load() == lab::PhyFile::valid) {
        return;
    }
    for (lab::Phy &phy : phys.phy) {
        lab::phy_power_on(phy, gigabit);
    }
    phys.magic.store(lab::PhyFile::valid);
}

lab::UniqueFd stop_signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return lab::UniqueFd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

// Follows the cables, and forgets stations that were not heard for long.
void poll_links(lab::EventLoop &loop, lab::VirtualSwitch &device, unsigned polls)
{
    loop.after(std::chrono::milliseconds(link_poll_ms), [&loop, &device, polls] {
        device.follow_links();
        if (polls % polls_per_second == 0) {
            device.forget_aged();
        }
        poll_links(loop, device, polls + 1);
    });
}

int run(const Options &options)
{
    lab::MappedFile regs_file;
    lab::MappedFile phys_file;
    if (!map(regs_file, options.regs, lab::switch_physical_base, lab::switch_block_size) ||
        !map(phys_file, options.phys, 0, sizeof(lab::PhyFile))) {
        return 1;
    }
    auto &phys = *phys_file.as<lab::PhyFile>();
    power_on(phys, options.gigabit);

    lab::EventLoop loop;
    lab::VirtualSwitch device(lab::SwitchRegs(regs_file.as<volatile uint32_t>()), phys, options.cpu_ports);
    lab::ControlServer control(loop, device);
    std::string failure = options.taps ? device.attach(loop) : "";
    if (failure.empty() && !options.control.empty()) {
        failure = control.listen(options.control);
    }
    const lab::UniqueFd signals = stop_signals();
    const bool watched = loop.add(signals.get(), EPOLLIN, [&](uint32_t) { loop.stop(); });
    poll_links(loop, device, 1);
    if (!failure.empty() || !watched) {
        fprintf(stderr, "vswitch: %s\n", failure.empty() ? "cannot set up the event loop" : failure.c_str());
        return 1;
    }
    puts("ready");
    fflush(stdout);
    return loop.run() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    return run(parse(argc, argv));
}
