// The two structures of a capture file: the header it starts with, and a record for each frame, stamped with
// the time of the call. Microseconds, Ethernet, the machine's byte order.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace lab {

std::string pcap_header();
std::string pcap_record(std::span<const uint8_t> frame);

} // namespace lab
