// Daemon, sibling and supervisor, and the supervisor's DHCP and PPPoE clients. Their command lines may hold a
// password and are left out.

#include "bus.h"
#include "facts/health.h"
#include "facts/router.h"
#include "processes.h"

#include <cstring>

namespace ctl {

namespace {

constexpr const char *services[] = {"dhcp", "pppoe"};

const char *state_of(int status)
{
    switch (status) {
    case UBUS_STATUS_OK:
        return "answers";
    case UBUS_STATUS_NOT_FOUND:
        return "missing";
    case UBUS_STATUS_TIMEOUT:
        return "silent";
    case UBUS_STATUS_CONNECTION_FAILED:
        return "unknown";
    default:
        return "fails";
    }
}

void put_client(const char *service, const char *name, json_object *instance, json_object *made)
{
    put(made, "name", name);
    put(made, "service", service);
    const bool running = get_flag(instance, "running");
    put_flag(made, "running", running);
    process runs;
    if (running && describe_process(static_cast<pid_t>(get_number(instance, "pid")), &runs)) {
        put_number(made, "pid", runs.pid);
        put_number(made, "uptime_s", runs.age_s);
        put_number(made, "started_s", runs.started_s);
    }
    if (!running && get(instance, "exit_code") != nullptr) {
        put_number(made, "exit_code", get_number(instance, "exit_code"));
    }
}

void add_clients(json_object *clients, json_object *listed)
{
    for (const char *service : services) {
        json_object *instances = get(get(listed, service), "instances");
        if (instances == nullptr) {
            continue;
        }
        json_object_object_foreach(instances, name, instance)
        {
            put_client(service, name, instance, append_table(clients));
        }
    }
}

} // namespace

void add_services(json_object *facts)
{
    json_object *health = put_table(facts, "health");
    read_health(health, false);
    bus broker;
    if (broker.why_not() != nullptr) {
        put(facts, "broker", broker.why_not());
        note_unread(facts, "%s: clients, supervisor and sibling cannot be asked", broker.why_not());
        return;
    }
    put(facts, "broker", "answers");
    json listed;
    const int status = broker.ask("service", "list", &listed);
    put(facts, "supervisor", state_of(status));
    if (status == UBUS_STATUS_OK) {
        json_object *clients = put_list(facts, "clients");
        add_clients(clients, listed.get());
    } else {
        note_unread(facts, "the supervisor does not list its clients");
    }
    put(facts, "sibling", state_of(broker.ask("ombrine.run", "run", nullptr)));
}

} // namespace ctl
