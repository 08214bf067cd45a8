#include "bench.h"

#include "call.h"
#include "netintf/events.h"
#include "netintf/registry.h"
#include "netintf/startup.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>

namespace model {

namespace {

constexpr int disagreement = -1000;
const char *const object = "ivarode.intf";
constexpr uint32_t untag_all_but_cpu = 0x3f;
constexpr unsigned all_links = 0x1f;
constexpr unsigned lan_role = 1;

std::string dotted(uint32_t address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

// Numbers of VLANs go over the bus as numbers, the rest as texts.
seam::Message message(const Fields &fields)
{
    seam::Message out;
    for (const auto &[name, value] : fields) {
        if (name.starts_with("vlanid")) {
            out.number(name.c_str(), static_cast<uint32_t>(std::stoul(value)));
        } else {
            out.text(name.c_str(), value);
        }
    }
    return out;
}

void configure(const std::string &package, const std::vector<Section> &sections)
{
    for (const Section &one : sections) {
        seam::world.sections.push_back(
            {package, "interface", one.name, {one.fields.begin(), one.fields.end()}});
    }
}

// A kernel like a router's, with both Ethernet devices and nothing else.
seam::System switched_on()
{
    seam::System system;
    system.devices["eth1"].kind = "port";
    system.longest_name = 15;
    system.asked_keep();
    return system;
}

int call(const char *method, const seam::Message &message)
{
    return seam::call_method(object, method, message).value_or(disagreement);
}

std::string join(const std::vector<std::string> &lines)
{
    std::string out;
    for (const std::string &line : lines) {
        out += line + "\n";
    }
    return out;
}

Interface record_of(const netintf_entry &entry)
{
    Interface out;
    out.name = entry.name;
    out.type = static_cast<Type>(entry.intf_type);
    out.port = entry.hw_port;
    out.vlan1 = entry.vlanid1;
    out.vlan2 = entry.vlanid2;
    std::copy(entry.mac, entry.mac + 6, out.mac.begin());
    out.ip = dotted(entry.ipaddr);
    out.mask = dotted(entry.netmask);
    out.gateway = dotted(entry.gateway);
    out.enable = entry.enable != 0;
    out.number = entry.defrt_pri;
    out.proto = static_cast<Proto>(entry.proto);
    return out;
}

} // namespace

const BoardPlan one_cpu_board{{{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}}};
const BoardPlan two_cpu_board{{{1, 1}, {1, 2}, {2, 3}, {2, 4}, {2, 0}}, true};
const BoardPlan shared_role_board{
    {{1, 4}, {1, 3}, {3, 2}, {3, 1}, {2, 0}}, false, {0x00, 0x11, 0x22, 0xff, 0xff, 0xfe}};
const BoardPlan lan1_on_port0_board{{{1, 0}, {1, 1}, {1, 2}, {2, 3}, {2, 4}}};

Bench::Bench()
{
    board(one_cpu_board);
}

Bench::~Bench()
{
    inprocess::daemon_end();
}

void Bench::board(const BoardPlan &plan)
{
    inprocess::Board board{{}, plan.two_cpu_ports ? inprocess::two_cpu_ports : 1, plan.base};
    for (const auto &[role, number] : plan.ethernet) {
        board.ports.push_back({static_cast<uint8_t>(role), static_cast<uint8_t>(number)});
    }
    ASSERT_TRUE(inprocess::daemon_begin(board));
    oracle = std::make_unique<Oracle>(plan);
    std::fill(block_.begin(), block_.end(), 0);
    isolation.switched_on();
    forwarder_ = std::make_unique<lab::Forwarder>(lab::SwitchRegs(block_.data()), plan.two_cpu_ports ? 2 : 1);
    forwarder_->set_link(all_links);
    lan_ports_.clear();
    for (const auto &[role, number] : plan.ethernet) {
        if ((role & lan_role) != 0) {
            lan_ports_.insert(number);
        }
    }
    ASSERT_EQ(restart(true), 0);
}

int Bench::agree(const std::string &step, int daemon, int expected)
{
    EXPECT_EQ(daemon, expected) << step;
    tally[step][daemon]++;
    return daemon == expected ? daemon : disagreement;
}

int Bench::restart(bool cleanup, const std::vector<Section> &lans, const std::vector<Section> &wans)
{
    EXPECT_TRUE(inprocess::daemon_restart());
    oracle->die();
    if (cleanup) {
        below = switched_on();
        oracle->kernel = switched_on();
    }
    seam::world.sections.clear();
    configure("lan_intf", lans);
    configure("wan_intf", wans);
    // The layout joins all that may be LANs', until their sections take them out.
    opening_ = {lan_ports_, true};
    const int result = agree("start", netintf_lan_init(), oracle->start(lans, wans));
    compare();
    return result;
}

int Bench::add(const Fields &fields)
{
    const int result = agree("add", call("add", message(fields)), oracle->add(fields));
    compare();
    return result;
}

int Bench::config(const Fields &fields)
{
    const int result = agree("config", call("config", message(fields)), oracle->config(fields));
    compare();
    return result;
}

int Bench::del(const std::vector<std::string> &names)
{
    const int result = agree("del", call("del", seam::Message().texts("intf", names)), oracle->del(names));
    compare();
    return result;
}

int Bench::enable(const std::vector<std::string> &names, bool enable)
{
    const int status = call("enable", seam::Message().texts("intf", names).number("enable", enable ? 1 : 0));
    const int result = agree("enable", status, oracle->enable(names, enable));
    compare();
    return result;
}

int Bench::port_add(const std::string &name)
{
    const int result =
        agree("port_add", call("port_add", seam::Message().text("name", name)), oracle->port_add(name));
    compare();
    return result;
}

int Bench::port_del(const std::string &name)
{
    // The port of LAN 1 joins the VLAN that it is to go back to, and leaves it as the port's.
    if (oracle->port_of(name) == oracle->lan1()) {
        opening_.lans = lan_ports_;
    }
    const int result =
        agree("port_del", call("port_del", seam::Message().text("name", name)), oracle->port_del(name));
    compare();
    return result;
}

void Bench::link(unsigned port, bool up)
{
    const nl_link_event event{port, up ? 1U : 0U};
    agree("link", netevt_nl_link_event(&event), oracle->link_event(port, up));
    compare();
}

void Bench::refuse(unsigned nth)
{
    below.refuse(nth);
    oracle->kernel.refuse(nth);
}

void Bench::compare()
{
    below.refuse(0);
    oracle->kernel.refuse(0);
    std::vector<std::string> signals = seam::trace_take();
    EXPECT_EQ(isolation.way(signals, std::exchange(opening_, {})), "");
    std::erase_if(signals, [](const std::string &line) { return !line.starts_with("kill("); });
    EXPECT_EQ(signals, std::exchange(oracle->signals, {}));
    EXPECT_EQ(join(below.asked_take()), join(oracle->kernel.asked_take()));
    EXPECT_EQ(seam::lines_of(seam::facts(below)), seam::lines_of(seam::facts(oracle->kernel)));
    EXPECT_EQ(seam::process.left_open(), "");
    EXPECT_EQ(seam::process.misused, 0U);
    compare_records();
    compare_switch();
}

void Bench::compare_records()
{
    Oracle seen{*oracle};
    for (uint32_t p = 0; p < front_ports; p++) {
        const netintf_entry *head = netintf_port_head_get(p);
        Port &port = seen.ports[p];
        port = {static_cast<Type>(head->intf_type), head->hw_port, head->name, head->link != 0, {}};
        for (const netintf_entry *entry = head->next; entry != head; entry = entry->next) {
            ASSERT_EQ(entry->next->prev, entry);
            port.interfaces.push_back(record_of(*entry));
        }
    }
    EXPECT_EQ(seen.picture(), oracle->picture());
}

void Bench::compare_switch()
{
    for (const auto &[offset, value] : seam::world.hardware.registers) {
        block_.at(offset / 4) = value;
    }
    EXPECT_EQ(isolation.registers(), block_);
    const lab::SwitchRegs regs(block_.data());
    for (unsigned i = 0; i < table_size; i++) {
        EXPECT_EQ(regs.entry(i).untag, i < front_ports ? untag_all_but_cpu : 0U) << "entry " << i;
    }
    EXPECT_EQ(switch_in(regs).picture(), oracle->sw.picture());
}

void Bench::compare_frames()
{
    std::set<unsigned> tags{0, 100, 4095};
    for (const Vlan &vlan : oracle->sw.table) {
        tags.insert(vlan.vid);
    }
    for (unsigned port = 0; port < lab::port_count; port++) {
        for (const unsigned tag : tags) {
            if (tag < 4096 && !HasFailure()) {
                compare_path(port, tag);
            }
        }
    }
}

void Bench::compare_path(unsigned port, unsigned tag)
{
    std::vector<uint8_t> frame(60, 0);
    std::fill_n(frame.begin(), 6, 0xff);
    frame[6] = 0x02;
    frame[11] = static_cast<uint8_t>(port + 1);
    if (tag != 0) {
        frame[12] = 0x81;
        frame[14] = static_cast<uint8_t>(tag >> 8);
        frame[15] = static_cast<uint8_t>(tag & 0xff);
    }
    std::map<unsigned, bool> reached; // port: tagged
    for (const lab::Egress &egress : forwarder_->forward(port, frame, 0)) {
        reached[egress.port] = egress.frame[12] == 0x81 && egress.frame[13] == 0x00;
    }
    std::map<unsigned, bool> expected;
    const bool there = port != 5 || oracle->two_cpu_ports();
    if (const auto entry = oracle->sw.entry_of(port, tag); there && entry) {
        for (const unsigned other : oracle->sw.table[*entry].members) {
            if (other != port && (other != 5 || oracle->two_cpu_ports())) {
                expected[other] = other >= front_ports || *entry >= front_ports;
            }
        }
    }
    EXPECT_EQ(reached, expected) << "from port " << port << " with tag " << tag;
}

unsigned Bench::wanted(const char *variable, unsigned otherwise)
{
    const char *value = std::getenv(variable);
    const int number = value == nullptr ? 0 : std::atoi(value);
    return number > 0 ? static_cast<unsigned>(number) : otherwise;
}

} // namespace model
