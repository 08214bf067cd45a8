// The bus and event-loop libraries. Their headers lack C linkage guards and leave macros behind that C++
// headers trip over; every file here includes them through this one.
#pragma once

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
#include <libubox/utils.h>
}
#include <libubus.h>

#undef fallthrough
#undef __constructor
#undef __destructor
