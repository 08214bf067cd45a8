// Where a board has its emulated hardware.
#pragma once

namespace lab {

inline constexpr const char *registers_path = "/dev/mem"; // the switch's, where the router expects memory
inline constexpr const char *phys_path = "/run/lab/phys";
inline constexpr const char *shim_path = "/usr/lib/lab-shim.so"; // answers the driver's ioctls from the two

} // namespace lab
