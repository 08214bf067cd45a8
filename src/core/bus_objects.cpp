#include "core/bus_objects.h"

#include "core/bus_handlers.h"
#include "core/policies.h"
#include "core/result.h"
#include "platform/bus.h"

namespace {

// Fields are assigned by name because releases of the bus library differ in what else a method holds.
constexpr struct ubus_method method(const char *name, bus_handler *handler)
{
    struct ubus_method m = {};
    m.name = name;
    m.handler = handler;
    return m;
}

template <size_t N>
constexpr struct ubus_method method(const char *name, bus_handler *handler, const policy_table<N> &policy)
{
    struct ubus_method m = method(name, handler);
    m.policy = policy.fields;
    m.n_policy = policy.count;
    return m;
}

constexpr struct ubus_method intf_methods[] = {
    method("port_add", netintf_ubus_port_add, port_name_policy),
    method("port_del", netintf_ubus_port_del, port_name_policy),
    method("port_dump", netintf_ubus_port_dump, port_dump_policy),
    method("add", netintf_ubus_l3intf_add, intf_policy),
    method("del", netintf_ubus_l3intf_del, intf_del_policy),
    method("enable", netintf_ubus_l3intf_enable, intf_enable_policy),
    method("config", netintf_ubus_l3intf_config, intf_policy),
    method("status", netintf_ubus_status),
    method("statist", netintf_ubus_statist),
};

constexpr struct ubus_method pppauth_methods[] = {
    method("notify", pppauth_ubus_notify, pppauth_policy),
};

constexpr struct ubus_method route_methods[] = {
    method("add", route_ubus_add, route_policy),
    method("del", route_ubus_del, route_del_policy),
    method("edit", route_ubus_edit, route_policy),
    method("enable", route_ubus_enable, route_enable_policy),
};

constexpr struct ubus_method pppuser_methods[] = {
    method("add", pppuser_ubus_add, pppuser_add_policy),
    method("del", pppuser_ubus_del, pppuser_del_policy),
};

constexpr struct ubus_method run_methods[] = {
    method("run", ivarode_ubus_run),
};

// One object with its type. The type publishes the methods, the object dispatches them: both point at the
// same table. The library writes the assigned ids into both.
struct bus_object {
    struct ubus_object_type type = {};
    struct ubus_object object = {};

    template <size_t N>
    constexpr bus_object(const char *name, const char *type_name, const struct ubus_method (&methods)[N])
    {
        type.name = type_name;
        object.name = name;
        object.type = &type;
        type.methods = object.methods = methods;
        type.n_methods = object.n_methods = static_cast<int>(N);
    }
};

constinit bus_object objects[] = {
    {"ivarode.intf", "netintf", intf_methods},    {"ivarode.pppauth", "netauth", pppauth_methods},
    {"ivarode.route", "routeset", route_methods}, {"ivarode.pppuser", "pppuser", pppuser_methods},
    {"ivarode.run", "ivarode", run_methods},
};

constinit struct ubus_object *object_list[] = {
    &objects[0].object, &objects[1].object, &objects[2].object, &objects[3].object, &objects[4].object,
};

constexpr int object_count = sizeof(object_list) / sizeof(object_list[0]);

} // namespace

int ivarode_ubus_init()
{
    return ubuslib_invoke_init(1, object_list, object_count) == 0 ? rv_ok : rv_bus;
}

int ivarode_ubus_exit(int flag, struct ubus_object **object_table, int count)
{
    ubuslib_invoke_exit(flag, object_table, count);
    return rv_ok;
}

// Other daemons wait for this one as it waits for its sibling: by asking "run" until it answers.
int ivarode_ubus_run(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *,
                     struct blob_attr *)
{
    return status_ok;
}
