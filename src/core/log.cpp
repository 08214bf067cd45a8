#include "core/log.h"

#include "core/result.h"

#include <stdarg.h>
#include <stdio.h>

int ivarode_log(int level, const char *format, ...)
{
    if (format == nullptr) {
        return rv_fail;
    }
    char text[1024] = {};
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    // The text may hold percent signs by now; it is never a format again.
    syslog(level, "%s", text);
    return rv_ok;
}

int ivarode_dbg_init()
{
    openlog("ivarode", LOG_PID | LOG_CONS, LOG_DAEMON);
    if (netdbg_shm_init() != 0) {
        NET_ERROR("net dbg shm init failed\n");
        return rv_debug;
    }
    if (libsys_dbg_init() != 0) {
        NET_ERROR("sys dbg shm init failed\n");
        return rv_debug;
    }
    return rv_ok;
}

bool ivarode_dbg_enabled()
{
    return g_netd_dbg_shm != nullptr && (g_netd_dbg_shm[0] & netdbg_bit_daemon) != 0;
}
