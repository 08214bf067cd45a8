#include "core/exit.h"

#include "core/log.h"
#include "core/result.h"
#include "platform/command.h"

#include <signal.h>
#include <stdlib.h>

void ivarode_main_exit()
{
    NET_INFO("net main exit\r\n");
    cmdlib_kill_processes();
}

int ivarode_sig_handler(int signal_number)
{
    if (signal_number != SIGTERM) {
        return SIGTERM;
    }
    ivarode_main_exit();
    exit(0);
}

int ivarode_sig_init()
{
    signal(SIGTERM, [](int number) { ivarode_sig_handler(number); });
    atexit(ivarode_main_exit);
    return rv_ok;
}
