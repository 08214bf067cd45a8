// Whether the daemon works: it runs, its objects are on the bus, it answers, its counter of samples goes on.

#include "facts/health.h"

#include "bus.h"
#include "facts/debug.h"
#include "gather.h"
#include "processes.h"
#include "report.h"

#include <cstring>
#include <ctime>

namespace ctl {

namespace {

constexpr const char *objects[] = {"ivarode.intf", "ivarode.route", "ivarode.pppauth", "ivarode.pppuser",
                                   "ivarode.run"};

// A start waits 30 s for the sibling and 5 s for the PHYs; the firewall of a slow processor takes the rest.
constexpr int64_t longest_start_s = 60;

// Two samples every three seconds.
constexpr int longest_pause_ms = 4000;
constexpr int look_again_ms = 100;

int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// "daemon"; false when none runs.
bool add_process(json_object *facts, process *runs)
{
    json_object *made = put_table(facts, "daemon");
    const bool found = find_process("ivarode", runs);
    put_flag(made, "running", found);
    if (found) {
        put_number(made, "pid", runs->pid);
        put_number(made, "uptime_s", runs->age_s);
        const char state[] = {runs->state, '\0'};
        put(made, "process_state", state);
        char path[64];
        char where[64];
        snprintf(path, sizeof(path), "/proc/%d/wchan", runs->pid);
        read_small_file(path, where, sizeof(where));
        if (*where != '\0' && strcmp(where, "0") != 0) {
            put(made, "waits_in", where);
        }
    }
    return found;
}

// "objects"; how many are missing.
unsigned add_objects(json_object *facts, bus &broker)
{
    json_object *made = put_list(facts, "objects");
    unsigned missing = 0;
    for (const char *object : objects) {
        const bool there = broker.has(object);
        missing += there ? 0 : 1;
        json_object *each = append_table(made);
        put(each, "name", object);
        put_flag(each, "there", there);
    }
    return missing;
}

enum class sampling { advances, stands, unseen };

sampling watch_samples(json_object *facts)
{
    uint64_t first = 0;
    if (!read_samples(&first)) {
        put(facts, "samples_unseen", strerror(errno));
        return sampling::unseen;
    }
    uint64_t now = first;
    for (const int64_t until = now_ms() + longest_pause_ms; now == first && now_ms() < until;) {
        const timespec pause = {0, look_again_ms * 1000000L};
        nanosleep(&pause, nullptr);
        if (!read_samples(&now)) {
            put(facts, "samples_unseen", strerror(errno));
            return sampling::unseen;
        }
    }
    json_object_object_add(facts, "samples", json_object_new_uint64(now));
    return now != first ? sampling::advances : sampling::stands;
}

struct verdict {
    const char *state;
    const char *sentence;
};

verdict missing_objects(const process &runs)
{
    return runs.age_s < longest_start_s ? verdict{"starting", "its objects are not on the bus yet"}
                                        : verdict{"hung", "not all of its objects are on the bus"};
}

verdict judge(json_object *facts, bool samples_too)
{
    process runs;
    const bool is_running = add_process(facts, &runs);
    bus broker;
    put_flag(facts, "bus", broker.why_not() == nullptr);
    if (!is_running) {
        return {"down", "no process of the daemon is there"};
    }
    if (broker.why_not() != nullptr) {
        return {"unreachable", broker.why_not()};
    }
    if (add_objects(facts, broker) != 0) {
        return missing_objects(runs);
    }
    const int64_t before = now_ms();
    const int status = broker.ask("ivarode.run", "run", nullptr);
    put_flag(facts, "answers", status == UBUS_STATUS_OK);
    if (status != UBUS_STATUS_OK) {
        return {"hung", "it does not answer within 3 s"};
    }
    put_number(facts, "answer_ms", now_ms() - before);
    if (!samples_too) {
        return {"up", "it answers"};
    }
    switch (watch_samples(facts)) {
    case sampling::stands:
        return {"hung", "it answers, but has taken no sample for 4 s"};
    case sampling::unseen:
        return {"up", "it answers; its samples cannot be seen"};
    default:
        return {"up", "it answers and samples"};
    }
}

} // namespace

bool read_health(json_object *facts, bool samples_too)
{
    const verdict found = judge(facts, samples_too);
    put(facts, "state", found.state);
    put(facts, "sentence", found.sentence);
    return strcmp(found.state, "up") == 0;
}

int gather_health(const words & /*given*/, json_object *facts)
{
    return read_health(facts, true) ? done : failed;
}

} // namespace ctl
