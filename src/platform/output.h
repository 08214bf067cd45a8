// Output channel, debug area, GPIO and clock of the platform.
//
// Results: 0 is success unless said otherwise. Nothing here is owned by the caller.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Opens the output channel; the arguments are main's own. The result carries no meaning for the daemon.
//
// A start begins with this call, and is over when the links have been polled for the first time (events.h) or
// the process ends in order. Within it the platform may put off what netlib_intf_plcrt_del,
// netlib_ip_rule_del, iptlib_rules_flush and netlib_waninfo_db_insert take away, so that what is laid again
// has never been away; it answers as if that had been done.
int outlib_client_init(int argc, char **argv);

// One printf-style text each, by severity. They never fail in a way a caller must handle.
int outlib_error(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int outlib_warning(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int outlib_notice(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int outlib_info(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int outlib_debug(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Maps the debug area; g_netd_dbg_shm is null until this has succeeded.
int netdbg_shm_init(void);
// Prepares the platform library's own debug records.
int libsys_dbg_init(void);

// The debug area: word 0 holds the debug bits; an unsigned 64-bit counter of sampling runs follows.
// Owned by the platform library, shared with its tools.
extern uint32_t *g_netd_dbg_shm;
static const uint32_t netdbg_bit_daemon = 4;      // bit value: the daemon's debug messages
static const uint32_t netdbg_counter_offset = 16; // bytes

// Prepares the board's GPIO lines.
int sys_gpio_init2(void);

// Writes the local time as "YYYY-MM-DD HH:MM:SS", terminated, into at most size bytes.
int timelib_curtime_str_get(char *buf, int size);

#ifdef __cplusplus
}
#endif
