#include "commands.h"

#include "gather.h"
#include "show.h"

namespace ctl {

const command commands[] = {
    {"status", "", "ports, VLANs, interfaces, static routes, and what is wrong",
     "Rates are those of half a second. Status 1 where something is wrong or could not be read; a port "
     "without\n"
     "link and what is disabled in the configuration are not wrong. Below 120 columns MACs and rates of\n"
     "interfaces are left out.\n",
     true, true, gather_status, show_status},
    {"explain", "NAME | port N", "everything on the way of an interface, port, static route or PPP user",
     "Goes through all that must be right, in the order in which it depends on each other, a line each; the\n"
     "first that is not is the cause.\n",
     true, true, gather_explain, show_explain},
    {"health", "", "does the daemon answer, does it sample, are its objects on the bus",
     "One line; status 0 where all is well. It takes up to seven seconds: three for an answer, four for the\n"
     "next sample.\n",
     true, true, gather_health, show_health},
    {"check", "[--config DIR] [--board FILE]",
     "whether the daemon would start with this configuration, and what is odd in it",
     "Looks through the board file and the packages lan_intf, wan_intf and route_config, and says of each "
     "mistake\n"
     "what the daemon does about it. Where ivarode-plan is installed, the daemon itself is asked, too. "
     "Nothing is\n"
     "changed. Status 2 where a file or folder cannot be read.\n"
     "  --config DIR   the folder of the packages (/etc/config)\n"
     "  --board FILE   the board file (/etc/board.json)\n",
     true, false, gather_check, show_check},
    {"metrics", "[openmetrics]", "counters and states as text for a monitoring system",
     "One text for each question, with what could be read; a family without samples could not be. The text\n"
     "is Prometheus's own, with openmetrics that of OpenMetrics 1.0: counters are named without _total in\n"
     "their heads, and units are given.\n",
     true, false, gather_metrics, show_metrics},
    {"apply", "[--confirm SECONDS]", "put the committed configuration to use, with a way back",
     "Checks /etc/config, keeps the configuration that runs, and reloads. Without \"confirm\" within\n"
     "SECONDS (60; 10 to 86400) everything goes back, also after a loss of power. A second apply before\n"
     "that keeps the first way back.\n"
     "Needs the service ivarode-guard. What it has said is in /var/run/ivarode/apply.log.\n",
     true, false, gather_apply, show_apply},
    {"confirm", "", "keep what was applied", "Status 1 where nothing waits, or it is too late.\n", true,
     false, gather_confirm, show_confirm},
    {"rollback", "[boot]", "take back what was applied and not confirmed",
     "With boot, only what another run of the machine has left, and without a reload: for the init script.\n",
     true, false, gather_rollback, show_rollback},
    {"guard", "", "watch over daemon and changes; for the supervisor",
     "Asks the daemon every 15 s; after three silences in a row it is restarted, at most once in five\n"
     "minutes. Takes back what was applied and not confirmed in time. Runs until it is ended.\n",
     false, false, gather_guard, nullptr},
    {"switch", "", "the switch as the driver shows it: links, PVIDs, VLAN table",
     "Ports 0 to 4 are the front ports, 5 and 6 lead to the CPU. In the VLAN table a member port is\n"
     "shown as u where frames leave it without a tag, as t where they keep it.\n"
     "Reading a port's link takes away its memory of a short loss: the daemon may then miss that\n"
     "loss if it was over within a fifth of a second.\n",
     true, true, gather_switch, show_switch},
    {"debug", "[show|on [BITS]|off [BITS]|word BITS|counter NUMBER|forget]",
     "debug word, sample counter, records of null pointers",
     "  show             the debug word, the counter and the records (default)\n"
     "  on [BITS]        set these bits of the debug word\n"
     "  off [BITS]       clear these bits of the debug word\n"
     "  word BITS        set the debug word\n"
     "  counter NUMBER   set the sample counter\n"
     "  forget           drop the records of null pointers\n"
     "BITS is a number (decimal, 0x... or 0...) or a name: daemon (4), which is the default.\n",
     true, false, gather_debug, show_debug},
    {"version", "", "versions and builds of daemon, library and bus libraries",
     "A build is known by the identifier that the linker gave it.\n", true, false, gather_version,
     show_version},
};

const size_t command_count = sizeof(commands) / sizeof(commands[0]);

} // namespace ctl
