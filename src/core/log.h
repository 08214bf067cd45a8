// Reporting. Errors, warnings and notices go to two channels, always in this order and with the same text:
// the system log, then the platform's output. Information and debug texts go to the platform's output alone.
//
// Texts carry their own line ends. Many begin with a function and a number, as in "netintf_lan_add 2240": the
// numbers are fixed parts of the texts, not line numbers of these sources, and so are blanks and misspellings
// ("enalbe", "mesquerade", "php"). Log watchers and docs/messages.md know them so.
//
// The arguments of a report are evaluated once for each channel, so they must not have side effects.
// Reporting needs no heap.
#pragma once

#include "platform/output.h"

#include <syslog.h>

// Writes one text to the system log, cut at 1023 characters. Returns -1 for a null format, else 0.
int ivarode_log(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Opens the system log and the debug areas. Returns 0 or rv_debug.
int ivarode_dbg_init();

// True when the daemon's debug texts are wanted.
bool ivarode_dbg_enabled();

#define NET_ERROR(...) (ivarode_log(LOG_ERR, __VA_ARGS__), outlib_error(__VA_ARGS__))
#define NET_WARNING(...) (ivarode_log(LOG_WARNING, __VA_ARGS__), outlib_warning(__VA_ARGS__))
#define NET_NOTICE(...) (ivarode_log(LOG_NOTICE, __VA_ARGS__), outlib_notice(__VA_ARGS__))
#define NET_INFO(...) outlib_info(__VA_ARGS__)
#define NET_DEBUG(...) (ivarode_dbg_enabled() ? outlib_debug(__VA_ARGS__) : 0)
