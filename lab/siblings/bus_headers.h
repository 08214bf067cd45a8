// The bus and event-loop libraries. Some of their headers lack C linkage guards and one redefines a C++
// keyword of sorts; every file here includes them through this one.
#pragma once

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
#include <libubox/utils.h>
}
#include <libubus.h>

#undef fallthrough
