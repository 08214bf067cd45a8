// The headers of the two libraries here: what they declare is all that is exported.
#pragma once

#pragma GCC visibility push(default)
extern "C" {
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}
#pragma GCC visibility pop
