// Messages of the bus as they lie on the socket, made from an input: mostly sound, so that they reach what
// lies behind the framing, and wrong wherever the input says so.
#pragma once

#include "input.h"

#include <string>

namespace fuzz {

// Ids of clients and objects that a broker with counted ids hands out begin here.
constexpr uint32_t first_id = 0x1000;

// A whole message, header included. Ids in it are those of the broker's own objects or of the first 32
// others.
std::string take_bus_message(Input &input);

// A message of this type with these attributes (may be empty).
std::string bus_message(uint8_t type, uint16_t seq, uint32_t peer, std::string_view attributes);

} // namespace fuzz
