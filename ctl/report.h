// What the tool says of itself: one line on standard error, "ivarodectl: text".
#pragma once

namespace ctl {

[[gnu::format(printf, 1, 2)]] void complain(const char *format, ...);

enum exit_status { done = 0, failed = 1, wrong_usage = 2 };

} // namespace ctl
