// The board file: what is wrong with it, and what sections of the configuration find there.
#pragma once

#include "check/findings.h"

namespace ctl {

struct board_facts {
    bool known = false; // false: nothing more can be said
    bool two_cpu_ports = false;
    bool has_second_device = false; // "eth1"
    int lan_port[16];               // by number - 1; -1 where there is none
    int wan_port[16];
};

// False after a report, where the file cannot be read.
bool read_board(const char *path, findings &found, board_facts &board);

} // namespace ctl
