// What the tool says of itself: one line on standard error, "ivarodectl: text".
#pragma once

namespace ctl {

[[gnu::format(printf, 1, 2)]] void complain(const char *format, ...);

// While it lives, what the platform library reports goes elsewhere than to standard error. One at a time.
class reports_to {
public:
    explicit reports_to(void (*take)(const char *line));
    reports_to(const reports_to &) = delete;
    reports_to &operator=(const reports_to &) = delete;
    ~reports_to();
};

enum exit_status { done = 0, failed = 1, wrong_usage = 2 };

} // namespace ctl
