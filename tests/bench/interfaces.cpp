// One more interface: by one bus call; the same kernel operations sent directly; and given to one "ip
// -batch".

#include "bus.h"
#include "kernel.h"
#include "pairs.h"
#include "questions.h"

#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr const char *batch_file = "/tmp/bench-batch";
constexpr useconds_t settle = 30'000; // the daemon hears of every device, and is to be done with it

void run(std::vector<std::string> command)
{
    std::vector<char *> arguments;
    for (std::string &word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
        give_up(command[0] + " failed");
    }
}

void add_directly(kernel &kernel, const std::string &name, uint16_t vlan, const uint8_t (&vlan_mac)[6],
                  const uint8_t (&mac)[6], uint32_t address)
{
    const std::string lower = "eth0." + std::to_string(vlan);
    kernel.add_vlan(device("eth0"), lower, vlan);
    const uint32_t port = device(lower);
    kernel.set_mac(port, vlan_mac);
    kernel.set_up(port);
    kernel.add_bridge(name);
    const uint32_t bridge = device(name);
    kernel.set_mac(bridge, mac);
    kernel.set_up(bridge);
    kernel.set_bridge(port, bridge);
    kernel.add_address(bridge, address, 24);
}

void write_batch()
{
    std::ofstream(batch_file) << "link add link eth0 name eth0.302 type vlan id 302\n"
                                 "link set eth0.302 address 02:00:00:00:02:12\n"
                                 "link set eth0.302 up\n"
                                 "link add bench_ip type bridge stp_state 0 forward_delay 0\n"
                                 "link set bench_ip address 02:00:00:00:02:02\n"
                                 "link set bench_ip up\n"
                                 "link set eth0.302 master bench_ip\n"
                                 "address add 192.168.202.1/24 broadcast + dev bench_ip\n";
}

} // namespace

void ask_interfaces(const words &given)
{
    const int rounds = std::stoi(given.at(0));
    client bus;
    kernel kernel;
    const limit_object empty("bench.empty");
    const uint32_t object = bus.find("ivarode.intf");
    const uint32_t without = bus.find("bench.empty");
    message nothing("{}");
    message add(R"({"intf":"lan3_bench","vlanid1":300,"mac":"02:00:00:00:02:00","ipaddr":"192.168.200.1",)"
                R"("netmask":"255.255.255.0"})");
    message remove(R"({"intf":["lan3_bench"]})");
    write_batch();
    const uint8_t port_mac[6] = {2, 0, 0, 0, 2, 0x11};
    const uint8_t bridge_mac[6] = {2, 0, 0, 0, 2, 1};
    pairs beside_direct;
    pairs beside_batch;
    pairs call_beside_direct;
    for (int i = 0; i < rounds; i++) {
        const double direct =
            microseconds([&] { add_directly(kernel, "bench_raw", 301, port_mac, bridge_mac, 0xc0a8c901); });
        usleep(settle);
        const double batch = microseconds([&] { run({"ip", "-batch", batch_file}); });
        usleep(settle);
        const double call = microseconds([&] { bus.must(without, "call", nothing.attribute()); });
        const double ours = microseconds([&] { bus.must(object, "add", add.attribute()); });
        beside_direct.add(ours, direct);
        beside_batch.add(ours, batch);
        call_beside_direct.add(ours, direct + call);
        bus.must(object, "del", remove.attribute());
        for (const char *gone : {"bench_raw", "eth0.301", "bench_ip", "eth0.302"}) {
            kernel.delete_device(device(gone));
        }
        usleep(settle);
    }
    beside_direct.print("interface.direct");
    beside_batch.print("interface.batch");
    call_beside_direct.print("interface.call-and-direct");
}

void ask_time(const words &given)
{
    std::printf("time %.2f\n", microseconds([&] { run(given); }));
}

} // namespace bench
