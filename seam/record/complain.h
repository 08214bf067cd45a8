// What goes wrong with the recording, in the system log.
#pragma once

namespace seam::record {

__attribute__((format(printf, 1, 2))) void complain(const char *format, ...);

} // namespace seam::record
