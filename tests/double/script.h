// What a scenario sets up, and its steps. The script is one line for each word of command, fields parted by
// tabs, with \t, \n, \\ and \xNN in them; the runner beside it writes it. Lines before "loop" run when the
// library is loaded, the others when the daemon enters its event loop.
//
//   IVARODE_SCRIPT  the script's file. Without it the recorder stays silent and every call succeeds.
#pragma once

#include "platform/board.h"
#include "platform/events.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

struct ubus_object;
struct uloop_timeout;

namespace recorder {

constexpr uint32_t register_block = 0x10110000;

struct BoardPort {
    bool present = false;
    netbd_ether ether{};
};

struct UciOption {
    std::string name;
    std::string value;
};

struct UciSection {
    std::string package;
    std::string type;
    std::string name;
    std::vector<UciOption> options;
};

struct Scenario {
    bool scripted = false;
    std::array<uint8_t, 6> mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x50};
    uint32_t cpu = 0;
    std::array<BoardPort, 16> ports{};
    std::vector<std::string> packages;
    std::vector<UciSection> sections;
    std::array<uint32_t, 8> port_words{};
    std::string time = "2026-01-02 03:04:05";
    std::string net_dev;
    bool net_dev_readable = true;
    bool show_safe = false;
    bool show_options = false;

    // What the daemon has handed over.
    int (*on_link)(const nl_link_event *) = nullptr;
    int (*on_address)(const nl_addr_event *) = nullptr;
    std::vector<ubus_object *> objects;
    uloop_timeout *timer = nullptr;
};

extern Scenario scenario;

std::string register_key(uint32_t offset);
uint32_t *debug_words();
bool database_open();
// Descriptors and files that the daemon holds open at its seams.
unsigned sockets_open();
unsigned files_open();

// Runs the rest of the script, as the event loop.
void run_steps();
// Writes the model where the script says, if it says so.
void save_model();
// Drops the model's saving and what is open, at the end of the process.
void finish();

} // namespace recorder
