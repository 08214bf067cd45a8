// Daemon, broker and sibling, and the kernel's switch for forwarding.

#include "explain/explain.h"

namespace ctl {

namespace {

json_object *health_of(const subject &about)
{
    return get(about.facts, "health");
}

// An interface on a number that the board lacks: statist asks for its link for ever.
const char *endless_question(json_object *facts)
{
    const char *name = nullptr;
    for (json_object *own : items(get(facts, "interfaces"))) {
        name = get_number(own, "port") < 0 ? shown(own, "name") : name;
    }
    return name;
}

finding hang(const subject &about)
{
    json_object *health = health_of(about);
    if (is(get(health, "daemon"), "process_state", "T")) {
        return bad("kill -CONT it, or /etc/init.d/ivarode restart",
                   "the daemon hangs: it was stopped by a signal");
    }
    if (const char *name = endless_question(about.facts)) {
        return bad("kill -9 it, then /etc/init.d/ivarode restart",
                   "the daemon hangs: statist asks for the link of %s without end, which the board lacks",
                   name);
    }
    return bad("/etc/init.d/ivarode restart", "the daemon hangs: %s", shown(health, "sentence"));
}

} // namespace

finding look_process(const subject &about)
{
    json_object *health = health_of(about);
    if (is(health, "state", "starting")) {
        return unsure("the daemon is starting: what is missing may still come");
    }
    if (get_flag(get(health, "daemon"), "running")) {
        return good("the daemon runs, since %s s", shown(get(health, "daemon"), "uptime_s"));
    }
    if (broken_section(about.facts) == verdict::bad) {
        const statement of_section = said;
        return bad(of_section.remedy, "the daemon does not run: %s", of_section.sentence);
    }
    return bad("/etc/init.d/ivarode start; where it ends again, the last error line in the log says why",
               "the daemon does not run");
}

finding look_forwarding(const subject &about)
{
    if (get(about.facts, "forwarding") == nullptr) {
        return unsure("the kernel's switch for forwarding could not be read");
    }
    if (!get_flag(about.facts, "forwarding")) {
        return bad("sysctl -w net.ipv4.ip_forward=1", "IPv4 forwarding is off");
    }
    return good("IPv4 forwarding is on");
}

finding look_broker(const subject &about)
{
    if (is(about.facts, "broker", "answers")) {
        return good("the bus broker answers");
    }
    return bad("start ubusd, or end the one that hangs", "%s",
               shown(about.facts, "broker", "the bus cannot be asked"));
}

finding look_sibling(const subject &about)
{
    if (is(about.facts, "sibling", "answers")) {
        return good("ombrine.run, which the daemon waits for at its start, answers");
    }
    if (get(about.facts, "sibling") == nullptr || is(about.facts, "sibling", "unknown")) {
        return unsure("ombrine.run could not be asked");
    }
    return bad("start the system daemon that offers it, or install ivarode-sibling",
               "ombrine.run, which the daemon waits for at its start, %s",
               is(about.facts, "sibling", "missing") ? "is not on the bus" : "does not answer");
}

finding look_answer(const subject &about)
{
    json_object *health = health_of(about);
    if (is(health, "state", "hung")) {
        return hang(about);
    }
    return is(health, "state", "up") ? good("the daemon answers")
                                     : unsure("the daemon could not be asked: %s", shown(health, "sentence"));
}

} // namespace ctl
