// Questions on the bus, each with a limit: neither a hung broker nor a hung service holds the tool for
// longer.
#pragma once

#include "json.h"

#include <libubus.h>

namespace ctl {

constexpr int bus_limit_ms = 3000;

class bus {
public:
    bus();
    bus(const bus &) = delete;
    bus &operator=(const bus &) = delete;
    ~bus();

    // Null when the broker answers, else a sentence.
    const char *why_not() const { return why_not_; }
    bool has(const char *object);
    // 0 or a UBUS_STATUS_*, UBUS_STATUS_NOT_FOUND also for the object. answer may be null.
    int ask(const char *object, const char *method, json *answer, int limit_ms = bus_limit_ms);

private:
    bool find(const char *object, uint32_t *id);

    ubus_context context_ = {};
    const char *why_not_;
};

} // namespace ctl
