// The daemon's five bus objects.
#pragma once

struct ubus_object;

// Registers the objects on the connection. They live as long as the process. Returns 0 or rv_bus.
int ivarode_ubus_init();

// Counterpart of ivarode_ubus_init; the daemon never unregisters its objects. Returns 0.
int ivarode_ubus_exit(int flag, struct ubus_object **objects, int count);
