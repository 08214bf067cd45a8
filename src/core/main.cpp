// The start-up sequence. One table, in the order in which the parts of a router must come up: reporting, bus
// and sibling daemon, firewall, board, event loop, interfaces, kernel events, routes, and last the bus
// objects, so that they work as soon as they can be found.
//
// A failing step ends the process with status -3. Two things are deliberate: the GPIO step is only reported,
// and three steps in the middle clean up late (children ended, ports brought up) while those before and after
// them end without clean-up.

#include "board/board_map.h"
#include "core/bus_objects.h"
#include "core/log.h"
#include "core/result.h"
#include "firewall/chains.h"
#include "netintf/events.h"
#include "netintf/startup.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/events.h"
#include "route/address_event.h"
#include "route/table.h"

#include <libubus.h>

namespace {

constexpr const char *sibling = "ombrine.run";
constexpr int sibling_timeout = 30; // seconds

enum class on_failure { go_on, end, clean_up_and_end };

struct startup_step {
    int (*run)();
    on_failure failure;
    void (*report)();
};

constexpr startup_step startup[] = {
    {ivarode_dbg_init, on_failure::end, [] { NET_ERROR("ivarode debug init failed\n"); }},
    {sys_gpio_init2, on_failure::go_on, [] { NET_ERROR("ombrine sys gpio init failed\n"); }},
    {ubuslib_connect_init, on_failure::end, [] { NET_ERROR("ivarode ubus connect failed\n"); }},
    {[] { return ubuslib_task_status_wait(sibling, sibling_timeout); }, on_failure::end,
     [] { NET_ERROR("ivarode check %s failed\r\n", sibling); }},
    {netpre_init, on_failure::end, [] { NET_ERROR("net pre init failed\n"); }},
    {nl_duplex_init, on_failure::end, [] { NET_ERROR("net link duplex init failed\n"); }},
    {netbd_lan_wan_init, on_failure::end, [] { NET_ERROR("ivarode board info init failed\n"); }},
    {uloop_init, on_failure::end, [] { NET_ERROR("ivarode uloop init failed\r\n"); }},
    {netintf_lan_init, on_failure::clean_up_and_end, [] { NET_ERROR("ivarode interface init  failed\n"); }},
    {route_cfg_rule_init, on_failure::clean_up_and_end, [] { NET_ERROR("net route init failed\n"); }},
    {netevt_nl_init, on_failure::clean_up_and_end, [] { NET_ERROR("net event init failed\n"); }},
    {netintf_init_post, on_failure::end, [] { NET_ERROR("net nat init failed\n"); }},
    // Routes that cannot be loaded, and a refused handler, leave a router that still serves its interfaces.
    {route_cfg_init, on_failure::go_on, [] {}},
    {nl_rtmsg_init, on_failure::end, [] { NET_ERROR("netlink route init error\n"); }},
    {[] { return nl_rtmsg_handler_reg(nl_rtmsg_new_address, route_addr_event_handler); }, on_failure::go_on,
     [] {}},
    {ivarode_ubus_init, on_failure::end, [] { NET_ERROR("ivarode ubus init failed\n"); }},
};

bool start()
{
    for (const startup_step &step : startup) {
        if (step.run() == 0) {
            continue;
        }
        step.report();
        if (step.failure == on_failure::go_on) {
            continue;
        }
        if (step.failure == on_failure::clean_up_and_end) {
            cmdlib_kill_processes();
            netintf_init_post();
        }
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    outlib_client_init(argc, argv);
    if (!start()) {
        return rv_startup;
    }
    NET_NOTICE("ivarode init success\n");
    uloop_run();
    cmdlib_kill_processes();
    return 0;
}
