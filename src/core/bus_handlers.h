// Every bus method handler, each defined beside the subsystem it serves.
#pragma once

#include <libubus.h>

using bus_handler = int(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                        const char *method, struct blob_attr *msg);

bus_handler netintf_ubus_port_add;
bus_handler netintf_ubus_port_del;
bus_handler netintf_ubus_port_dump;
bus_handler netintf_ubus_l3intf_add;
bus_handler netintf_ubus_l3intf_del;
bus_handler netintf_ubus_l3intf_enable;
bus_handler netintf_ubus_l3intf_config;
bus_handler netintf_ubus_status;
bus_handler netintf_ubus_statist;
bus_handler pppauth_ubus_notify;
bus_handler route_ubus_add;
bus_handler route_ubus_del;
bus_handler route_ubus_edit;
bus_handler route_ubus_enable;
bus_handler pppuser_ubus_add;
bus_handler pppuser_ubus_del;
bus_handler ivarode_ubus_run;
