// The headers of both libraries. They export only the functions and variables declared there.
#pragma once

#pragma GCC visibility push(default)
extern "C" {
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}
#pragma GCC visibility pop
