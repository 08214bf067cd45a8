// Where the library reads what the administrator says. On a router these are the paths below; a program that
// plans from other files says so before the first read.
#pragma once

namespace libsys {

inline const char *board_path = "/etc/board.json";
inline const char *config_folder = "/etc/config";

} // namespace libsys
