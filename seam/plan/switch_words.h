// What a register of the switch says, decoded.
#pragma once

#include "world.h"

#include <string>

namespace seam::plan {

// What differs: "entry 1: VLAN 4091 (was 0), port 2 joins". Empty where nothing does.
std::string switch_change(const Hardware &before, const Hardware &after);

// "1 2 CPU": bits as port numbers, those that lead to the processor by name.
std::string port_list(uint32_t bits);

} // namespace seam::plan
