// Result codes of the daemon's own functions, and the statuses its bus methods answer with.
//
// Functions return 0 for success and one small negative code for each kind of failure. Handlers translate
// them into bus statuses, a separate type; the few places where a code leaves on the bus unchanged say
// handed_through.
#pragma once

#include <libubus.h>

constexpr int rv_ok = 0;
constexpr int rv_fail = -1;      // generic
constexpr int rv_invalid = -2;   // bad argument, or not found
constexpr int rv_startup = -3;   // start-up failed, or a record could not be freed
constexpr int rv_debug = -4;     // debug area
constexpr int rv_socket = -5;    // switch: no socket
constexpr int rv_ioctl = -6;     // switch: ioctl refused
constexpr int rv_uci = -8;       // walk of a UCI package
constexpr int rv_no_entry = -9;  // switch: VLAN entry not present
constexpr int rv_iptables = -10; // firewall
constexpr int rv_bus = -11;      // bus
constexpr int rv_no_memory = -12;
constexpr int rv_device = -13;   // device or address operation
constexpr int rv_proto = -17;    // unknown protocol, or no process behind a pid file
constexpr int rv_board = -19;    // board information or kernel events
constexpr int rv_route = -21;    // routing call
constexpr int rv_database = -22; // database
constexpr int rv_register = -25; // CPU register access

enum bus_status : int {
    status_ok = UBUS_STATUS_OK,
    status_invalid_command = UBUS_STATUS_INVALID_COMMAND,
    status_invalid_argument = UBUS_STATUS_INVALID_ARGUMENT,
    status_unknown_error = UBUS_STATUS_UNKNOWN_ERROR,
};

// A result, 0 or an error code, sent as the status of a request: callers of these methods know the codes.
constexpr bus_status handed_through(int rv)
{
    return static_cast<bus_status>(rv);
}
