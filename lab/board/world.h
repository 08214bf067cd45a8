#pragma once
// The file system that the board sees: the machine's programs under a private layer, everything else its
// own.

#include <string>

namespace lab {

// Builds it on the empty folder root (a mount point from then on) and makes it the caller's root.
// The caller must be in private mount, PID and network spaces. overlay: a folder copied over it last;
// programs: a build folder; what a router has of it goes to /usr. Nothing outside root is changed.
void build_world(const std::string &root, const std::string &overlay, const std::string &programs);

// What differs per host: its own /tmp, /run, /var, /etc/ppp and /sys. Called inside the host's new spaces.
void prepare_host_files();

constexpr const char *switch_control_path = "/run/lab/switch.sock";

} // namespace lab
