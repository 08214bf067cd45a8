// A TAP device: one end of the cable. It lives as long as this object, wherever it is moved to and however it
// is renamed meanwhile. Checksum and segmentation offloads are off, so that what is read are frames as on a
// wire.
#pragma once

#include "unique_fd.h"

#include <cstdint>
#include <span>
#include <string>

namespace lab {

class Tap {
public:
    // Creates the device in the caller's network namespace; 0 or a negative errno.
    int create(const std::string &name);

    bool open() const { return static_cast<bool>(fd_); }
    int descriptor() const { return fd_.get(); }

    // Bytes read; 0 when nothing is waiting, a negative errno otherwise. A frame longer than the buffer is
    // cut.
    int read(std::span<uint8_t> buffer);
    bool write(std::span<const uint8_t> frame); // false: the device is not up, or out of memory
    bool set_carrier(bool on);

private:
    UniqueFd fd_;
};

} // namespace lab
