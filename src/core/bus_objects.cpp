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

template <size_t N>
constexpr struct ubus_object_type object_type(const char *name, const struct ubus_method (&methods)[N])
{
    struct ubus_object_type type = {};
    type.name = name;
    type.methods = methods;
    type.n_methods = static_cast<int>(N);
    return type;
}

// The type publishes the methods, the object dispatches them: both point at the same table.
template <size_t N>
constexpr struct ubus_object object(const char *name, struct ubus_object_type *type,
                                    const struct ubus_method (&methods)[N])
{
    struct ubus_object object = {};
    object.name = name;
    object.type = type;
    object.methods = methods;
    object.n_methods = static_cast<int>(N);
    return object;
}

// The library writes the assigned ids into both records.
constinit struct ubus_object_type types[] = {
    object_type("netintf", intf_methods),   object_type("netauth", pppauth_methods),
    object_type("routeset", route_methods), object_type("pppuser", pppuser_methods),
    object_type("ivarode", run_methods),
};

constinit struct ubus_object objects[] = {
    object("ivarode.intf", &types[0], intf_methods),   object("ivarode.pppauth", &types[1], pppauth_methods),
    object("ivarode.route", &types[2], route_methods), object("ivarode.pppuser", &types[3], pppuser_methods),
    object("ivarode.run", &types[4], run_methods),
};

constexpr int object_count = sizeof(objects) / sizeof(objects[0]);

constinit struct ubus_object *object_list[object_count] = {
    &objects[0], &objects[1], &objects[2], &objects[3], &objects[4],
};

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
