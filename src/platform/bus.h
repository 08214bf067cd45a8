// The daemon's connection to the bus. All results: 0 success, non-zero failure.
#pragma once

#include <libubus.h>

#ifdef __cplusplus
extern "C" {
#endif

// Opens the bus connection.
int ubuslib_connect_init(void);
// Waits until the object answers its method "run"; timeout in seconds.
int ubuslib_task_status_wait(const char *object, int timeout);
// Registers the objects and attaches the connection to the event loop; flag is 1. The objects stay the
// caller's and must live until ubuslib_invoke_exit or the end of the process.
int ubuslib_invoke_init(int flag, struct ubus_object **objects, int count);
int ubuslib_invoke_exit(int flag, struct ubus_object **objects, int count);
// Calls a method of another object and waits for its end; reply may be null.
int ubuslib_invoke_call(const char *object, const char *method, struct blob_buf *msg,
                        ubus_data_handler_t reply, void *priv);
// Fills out with the strings of an array, in order, at most capacity of them. The strings lie in the
// message and live as long as it does. Fails on a null array and on an element that is not a string.
int ubuslib_bmsg_strlist_get(struct blob_attr *array, char **out, int capacity);

#ifdef __cplusplus
}
#endif
