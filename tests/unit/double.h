// What lies below the daemon, in process: every call of the platform library and the libc calls at the
// daemon's seams, recorded as lines of text, with answers that a test sets.
//
// A line is the call as it was made: netlib_br_addif('wan1', 'eth0.4090'). Texts stand in single quotes with
// C escapes, null is null. Register and board look-ups happen too often to be of interest; they are recorded
// only when a test shows them, but always counted.
#pragma once

#include "../double/text.h"
#include "platform/board.h"
#include "platform/events.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct ubus_object;
struct uloop_timeout;

namespace unit {

struct Section {
    std::string package;
    std::string type;
    std::string name;
    std::map<std::string, std::string> options;
};

// The answers. Everything a test changes is back to this at the start of the next.
struct World {
    std::array<uint8_t, 6> mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x50};
    uint32_t cpuid = 1;
    std::array<std::optional<netbd_ether>, 16> ports;

    std::map<uint32_t, uint32_t> registers; // the switch's, by offset
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> phys;
    std::array<uint32_t, 8> port_words{};

    std::set<std::string> packages;
    std::vector<Section> sections;

    std::array<uint8_t, 6> device_mac{0x0a, 0, 0, 0, 0, 0x01};
    int device_asks = 0; // how often netlib_eth_intf_exist still finds the device
    std::map<std::string, int> pids;
    std::set<std::string> chains;                          // "table chain"
    std::map<std::string, std::vector<std::string>> rules; // by "table chain"

    std::optional<std::string> net_dev;
    std::string time = "2026-01-02 03:04:05";

    bool show_registers = false;
    bool show_board = false;
    unsigned calloc_failing = 0; // the n-th allocation from now on fails
    // Answers of the daemon's own parts that never come about on their own; 0 and nothing: the part itself.
    std::map<uint32_t, std::pair<int, uint32_t>> port_links; // mtksw_port_link_get: result, link
    int sequence_result = 0;                                 // netbd_seqport_get
    int reg_read_once = 0;                                   // the next mtksw_reg_read
    int link_asks_failing = 0;                               // how often netintf_link_get_byname fails
    std::string equal_in; // function whose text comparisons all find the texts equal
};
extern World world;

// What the daemon handed over.
struct Handed {
    std::vector<ubus_object *> objects;
    int (*on_link)(const nl_link_event *) = nullptr;
    int (*on_address)(const nl_addr_event *) = nullptr;
    uloop_timeout *timer = nullptr;
    void (*on_signal)(int) = nullptr;
    void (*at_exit)() = nullptr;
};
extern Handed handed;

// Forgets trace, answers, failures and counts.
void double_reset();

// The lines since the last take, and those that were not shown.
std::vector<std::string> trace_take();
unsigned hidden_take();
// Sockets, files and databases that are open.
unsigned open_handles();

// Lets the nth call (0: every one) whose line begins so give a result instead of having its effect.
void answer(const std::string &line_begin, long result, unsigned nth = 0);
inline void fail(const std::string &line_begin, unsigned nth = 0)
{
    answer(line_begin, -1, nth);
}
void answers_forget();

enum class Shown { always, registers, board };

// One call: its line as it grows, then its result.
class Call : public doubles::CallText<Call> {
public:
    explicit Call(std::string_view name, Shown shown = Shown::always);
    Call &text(const char *value);
    // Records the call; the result a test wants, or nothing.
    std::optional<long> done();
    // Records the call; the result a test wants, or ok.
    int result(long ok = 0);

private:
    Shown shown_;
};

std::string quote(const char *text);
std::string quote(std::string_view text);

// Runs a function that ends in exit(); true when it did.
bool runs_into_exit(void (*function)());

uint64_t debug_counter();
void debug_area_map();
void debug_bits_set(uint32_t bits);

// One entry of the switch's VLAN table as its registers hold it.
struct VlanEntry {
    uint32_t vid;
    uint32_t members;
    bool operator==(const VlanEntry &) const = default;
};
VlanEntry vlan_entry(uint32_t index);
void vlan_entry_put(uint32_t index, VlanEntry entry);
uint32_t pvid(uint32_t port);

} // namespace unit
