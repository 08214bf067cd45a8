// The switch's state as JSON text, one line without the line end.
#pragma once

#include "virtual_switch.h"

#include <string>

namespace lab {

std::string status_json(VirtualSwitch &device);
std::string mac_json(VirtualSwitch &device);
std::string error_json(const std::string &text);

} // namespace lab
