// Preparations of the start, CPU registers and the clock.

#include "described.h"
#include "platform/board.h"
#include "platform/bus.h"
#include "platform/events.h"
#include "platform/output.h"

#include <cstdio>

using namespace seam;

int sys_bdinfo_init(void)
{
    return act<sys_bdinfo_init, nothing>(__func__);
}

int mtklib_cpu_reg_rd(uint32_t addr, uint32_t *value)
{
    return act<mtklib_cpu_reg_rd, &Hardware::cpu_read>(__func__, Hex{addr}, HexOut{value});
}

int mtklib_cpu_reg_wr(uint32_t addr, uint32_t value)
{
    return act<mtklib_cpu_reg_wr, &Hardware::cpu_write>(__func__, Hex{addr}, Hex{value, 8});
}

int libsys_dbg_init(void)
{
    return act<libsys_dbg_init, nothing>(__func__);
}

int sys_gpio_init2(void)
{
    return act<sys_gpio_init2, nothing>(__func__);
}

int timelib_curtime_str_get(char *buf, int size)
{
    const auto copy = [&] { std::snprintf(buf, static_cast<size_t>(size), "%s", world.time.c_str()); };
    return act<timelib_curtime_str_get>(__func__, copy, TextOut{buf, size}, size);
}

int ubuslib_connect_init(void)
{
    return act<ubuslib_connect_init, nothing>(__func__);
}

int ubuslib_task_status_wait(const char *object, int timeout)
{
    return act<ubuslib_task_status_wait, nothing>(__func__, object, timeout);
}

int nl_init(const char *client)
{
    return act<nl_init, nothing>(__func__, client);
}

int nl_duplex_init(void)
{
    return act<nl_duplex_init, nothing>(__func__);
}

int nl_rtmsg_init(void)
{
    return act<nl_rtmsg_init, nothing>(__func__);
}
