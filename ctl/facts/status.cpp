// The whole router, and rates from a second reading of its counters.

#include "explain/explain.h"
#include "facts/router.h"
#include "gather.h"
#include "report.h"

#include <ctime>

namespace ctl {

namespace {

constexpr int64_t between_readings_ms = 500;

int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void put_rate(json_object *of, json_object *before, json_object *after, const char *counter, const char *rate,
              int64_t span_ms)
{
    if (get(before, counter) != nullptr && get(after, counter) != nullptr && span_ms > 0) {
        const int64_t grown = get_number(after, counter) - get_number(before, counter);
        put_number(of, rate, grown < 0 ? 0 : grown * 8000 / span_ms);
    }
}

void put_rates(json_object *of, json_object *before, json_object *after, int64_t span_ms)
{
    put_rate(of, before, after, "rx_bytes", "rx_bits_per_s", span_ms);
    put_rate(of, before, after, "tx_bytes", "tx_bits_per_s", span_ms);
}

} // namespace

void add_rates(json_object *facts)
{
    const json first = table();
    const json second = table();
    add_kernel(first.get());
    const int64_t start = now_ms();
    const timespec pause = {0, between_readings_ms * 1000000};
    nanosleep(&pause, nullptr);
    add_kernel(second.get());
    const int64_t span = now_ms() - start;
    const auto add = [&](json_object *of, const char *device) {
        put_rates(of, find(get(first.get(), "devices"), "name", text_of(of, device)),
                  find(get(second.get(), "devices"), "name", text_of(of, device)), span);
    };
    for (json_object *interface : items(get(facts, "interfaces"))) {
        add(interface, "device");
    }
    for (json_object *device : items(get(facts, "devices"))) {
        add(device, "name");
    }
    for (json_object *port : items(get(facts, "ports"))) {
        if (get(port, "rx_bytes") != nullptr) {
            add(port, "device");
        }
    }
    put_number(facts, "rates_over_ms", span);
}

int gather_status(const words & /*given*/, json_object *facts)
{
    read_router(facts);
    add_rates(facts);
    return find_problems(facts) == 0 && get(facts, "unread") == nullptr ? done : failed;
}

} // namespace ctl
