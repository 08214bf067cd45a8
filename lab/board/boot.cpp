// How a board is raised, in order. Everything here may block: nobody is served yet, and it is the caller who
// sets a limit.
#include "../hw/places.h"
#include "board.h"
#include "files.h"
#include "world.h"

#include <array>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace lab {
namespace {

constexpr const char *bus_socket = "/var/run/ubus/ubus.sock";

void bring_up_loopback()
{
    // no tool needed: lo lacks only its address, which comes with "up"
    must_run(Host::here("here"), {"ip", "link", "set", "lo", "up"});
}

bool answers(const char *path)
{
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof(address.sun_path) - 1);
    return fd && connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
}

} // namespace

void Board::raise()
{
    Host &router = hosts_.at("router");
    step("mount, network, process, IPC and host name spaces; file system on a tmpfs");
    // whatever small tool the machine lacks; the search path ends there
    make_dirs(applets_path);
    must_run(router, {"busybox", "--install", "-s", applets_path});
    bring_up_loopback();
    step("router: net.ipv4.ip_forward = 1");
    write_setting("net.ipv4.ip_forward", "1");
    for (const auto &[key, value] : plan_.router_settings) {
        write_setting(key, value);
    }
    make_hosts();
    start_switch();
    plug_cables();
    start_bus();
    start_rest();
}

void Board::step(const std::string &text)
{
    channel_.send(FrameType::note, 0, text);
}

void Board::make_hosts()
{
    for (const HostPlan &plan : plan_.hosts) {
        step("network, mounts and host name of " + plan.name);
        hosts_.emplace(plan.name, Host::create(plan.name, [&plan] {
                           prepare_host_files();
                           // Stations around the router speak IPv4; their router solicitations would only
                           // blur a capture.
                           write_setting("net.ipv6.conf.all.disable_ipv6", "1");
                           write_setting("net.ipv6.conf.default.disable_ipv6", "1");
                           for (const auto &[key, value] : plan.settings) {
                               write_setting(key, value);
                           }
                       }));
    }
    parking_ = Host::create("parking", [] {});
}

void Board::start_switch()
{
    std::array<int, 2> pair{};
    check(pipe2(pair.data(), O_CLOEXEC), "pipe");
    UniqueFd from(pair[0]), to(pair[1]);
    services_.define("switch",
                     {"vswitch", "--regs", registers_path, "--phys", phys_path, "--control",
                      switch_control_path, "--cpu-ports", std::to_string(plan_.cpu_ports)},
                     {});
    step("vswitch with TAP devices port0..port4 and " + std::to_string(plan_.cpu_ports) + " CPU port(s)");
    services_.start("switch", to.get());
    to.reset();
    std::array<char, 64> line{};
    if (read(from.get(), line.data(), line.size() - 1) <= 0 || std::string(line.data()) != "ready\n") {
        throw std::runtime_error("the switch did not come up");
    }
}

void Board::plug_cables()
{
    std::string moves, lines;
    for (unsigned port = 0; port < 5; port++) {
        const Host *owner = &parking_;
        for (const HostPlan &plan : plan_.hosts) {
            owner = plan.port == port ? &hosts_.at(plan.name) : owner;
        }
        moves +=
            "link set dev port" + std::to_string(port) + " netns /proc/1/fd/" + std::to_string(owner->net());
        moves += owner == &parking_ ? "\n" : " name eth0\n";
        if (owner == &parking_) {
            must_run(hosts_.at("router"),
                     {"lab-agent", "ask", switch_control_path, "link", std::to_string(port), "down"});
        }
    }
    step("router: ip -batch: " + moves);
    must_run(hosts_.at("router"), {"ip", "-batch", "-"}, moves);
    for (const HostPlan &plan : plan_.hosts) {
        lines = "link set dev lo up\nlink set dev eth0 address 02:1a:00:00:00:0" + std::to_string(plan.port) +
                "\nlink set dev eth0 up\n";
        for (const std::string &line : plan.ip_lines) {
            lines += line + "\n";
        }
        step(plan.name + ": ip -batch: " + lines);
        must_run(hosts_.at(plan.name), {"ip", "-batch", "-"}, lines);
    }
}

void Board::start_bus()
{
    services_.define("broker", {"ubusd"}, {});
    step("ubusd");
    services_.start("broker");
    while (!answers(bus_socket)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void Board::start_rest()
{
    std::vector<std::string> words{"lab-siblings"};
    words.insert(words.end(), plan_.sibling_options.begin(), plan_.sibling_options.end());
    // what it starts finds the emulated hardware, too
    services_.define("siblings", words, {std::string("LD_PRELOAD=") + shim_path});
    step("lab-siblings");
    services_.start("siblings");
    // what the image's init script does before it starts the daemon
    Outcome database = run_now(hosts_.at("router"), {"/lib/ivarode/database.sh"});
    if (!database.ok()) {
        log_.note("database.sh: " + database.output);
    }
    Outcome kept = run_now(hosts_.at("router"), {"/bin/sh", "-c", ". /lib/ivarode/laid.sh && config_keep"});
    if (!kept.ok()) {
        log_.note("config_keep: " + kept.output);
    }
    std::string preload = plan_.daemon_preload.empty() ? "" : plan_.daemon_preload + ":";
    // confined as the image's supervisor confines it
    services_.define("daemon",
                     {"/sbin/ujail", "--capabilities", "/etc/capabilities/ivarode.json", "--seccomp",
                      "/etc/seccomp/ivarode.json", "--no-new-privs", "--", "/usr/sbin/ivarode"},
                     {"LD_PRELOAD=" + preload + shim_path});
    if (plan_.start_daemon) {
        step("ivarode");
        services_.start("daemon");
    }
}

} // namespace lab
