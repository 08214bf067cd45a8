// iptables, child processes and the bus, as the platform library uses them.
#include "bus_world.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/output.h"
#include "sweep.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A command that lists one chain and keeps the changes that it is asked for.
class LibraryIptables : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        write_file("/tmp/bin/iptables",
                   "#!/bin/sh\ncase \"$*\" in *-S) echo '-P INPUT ACCEPT'; echo '-N mine';"
                   " echo '-A mine -j DROP';; *) echo \"$*\" > /tmp/changed;; esac\n",
                   0755);
        setenv("PATH", "/tmp/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    }
    // A program of many names, which as iptables-restore does the same.
    static void offer_stream()
    {
        write_file("/tmp/bin/xtables-test-multi",
                   "#!/bin/sh\ncase \"$*\" in *--noflush*)\n"
                   " while read -r line; do case $line in\n"
                   " '#'*) echo \"$line\" ;; '*'*) table=${line#?} ;; COMMIT) ;;\n"
                   " -S) echo '-P INPUT ACCEPT'; echo '-N mine' ;;\n"
                   " *) echo \"-w -t $table $line\" > /tmp/changed ;;\n"
                   " esac; done ;;\n"
                   "*-S) echo '-P INPUT ACCEPT'; echo '-N mine' ;; *) echo \"$*\" > /tmp/changed ;; esac\n",
                   0755);
        unlink("/tmp/bin/iptables");
        ASSERT_EQ(symlink("xtables-test-multi", "/tmp/bin/iptables"), 0);
    }
    static std::string changed() { return file_exists("/tmp/changed") ? read_file("/tmp/changed") : ""; }
    static void nothing_changed() { unlink("/tmp/changed"); }
    static Operation change(const char *name, int (*run)())
    {
        return {.name = name, .prepare = nothing_changed, .run = run, .state = changed};
    }
};

TEST_F(LibraryIptables, Changes)
{
    sweep(change("iptlib_chain_new", [] { return iptlib_chain_new("filter", "fresh"); }));
    sweep(change("iptlib_rule_append", [] { return iptlib_rule_append("filter", "mine", "-j \"ACCEPT\""); }));
    sweep(change("iptlib_rules_flush", [] { return iptlib_rules_flush("filter", "mine"); }));
    sweep(change("cmdlib_do_iptables_cmd",
                 [] { return cmdlib_do_iptables_cmd("iptables -t %s -A mine -j DROP", "nat"); }));
}

// Whatever fails about the stream, a command makes the change.
TEST_F(LibraryIptables, ChangesThroughAStream)
{
    offer_stream();
    sweep(change("stream, iptlib_chain_new", [] { return iptlib_chain_new("filter", "fresh"); }));
    sweep(change("stream, second change", [] {
        const int first = iptlib_rules_flush("filter", "mine");
        return first ? first : iptlib_rule_append("filter", "mine", "-j ACCEPT");
    }));
}

// A rule that cannot take the place of an old one is appended; the listing never shows the old one gone,
// which is told.
TEST_F(LibraryIptables, ChangesInAStart)
{
    Operation refill{.name = "start, iptlib_rules_flush and iptlib_rule_append",
                     .prepare =
                         [] {
                             nothing_changed();
                             outlib_client_init(0, nullptr);
                         },
                     .run =
                         [] {
                             const int result = iptlib_rules_flush("filter", "mine");
                             return result ? result : iptlib_rule_append("filter", "mine", "-j ACCEPT");
                         },
                     .state = [] { return changed().ends_with("-j ACCEPT\n") ? "laid" : "absent"; },
                     .own_lines = true};
    sweep(refill);
    offer_stream();
    refill.name = "start, the same through a stream";
    sweep(refill);
}

TEST_F(LibraryIptables, QuestionsThroughAStream)
{
    offer_stream();
    sweep({.name = "stream, iptlib_chain_is_exist", .prepare = nothing_changed, .run = [] {
               return iptlib_chain_is_exist("filter", "mine") ? 0 : -1;
           }});
}

// Both answer "no" when the table cannot be listed, and say so in a debug line.
TEST_F(LibraryIptables, Questions)
{
    sweep({.name = "iptlib_chain_is_exist", .prepare = nothing_changed, .run = [] {
               return iptlib_chain_is_exist("filter", "mine") ? 0 : -1;
           }});
    sweep({.name = "iptlib_rule_is_exist", .prepare = nothing_changed, .run = [] {
               return iptlib_rule_is_exist("filter", "mine", "DROP") ? 0 : -1;
           }});
}

class LibraryBus : public BusTest {};

std::string last_request(const Peer &peer)
{
    auto all = peer.requests();
    return all.empty() ? "none" : all.back();
}

TEST_F(LibraryBus, ChildProcesses)
{
    Broker broker;
    Peer service("service");
    auto asked = [&] { return last_request(service); };
    auto forgotten = [] { write_file("/tmp/peer-service.log", ""); };
    auto started = [forgotten] {
        EXPECT_EQ(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc -i wan1", 0), 0);
        forgotten();
    };
    sweep({.name = "cmdlib_procd_start_inst",
           .prepare = forgotten,
           .run = [] { return cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc -i \"wan 1\"", 0); },
           .state = asked});
    sweep({.name = "cmdlib_procd_del_inst",
           .prepare = started,
           .run = [] { return cmdlib_procd_del_inst("dhcp", "wan1"); },
           .state = asked});
    sweep(
        {.name = "cmdlib_kill_processes", .prepare = started, .run = cmdlib_kill_processes, .state = asked});
}

TEST_F(LibraryBus, PidFile)
{
    // A process whose command line names the file, and that waits for input without a child of its own.
    int input[2];
    ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
    pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(input[0], STDIN_FILENO);
        execl("/bin/sh", "sh", "-c", "read line", "/tmp/x.pid", nullptr);
        _exit(127);
    }
    write_file("/tmp/x.pid", std::to_string(child) + "\n");
    static int found;
    EXPECT_TRUE(wait_for([] { return cmdlib_get_proc_id("/tmp/x.pid", &found) == 0; }));
    sweep({.name = "cmdlib_get_proc_id",
           .prepare = [] { found = 0; },
           .run = [] { return cmdlib_get_proc_id("/tmp/x.pid", &found); },
           .state = [child] { return found == child ? "it" : std::to_string(found); },
           .all_or_nothing = true});
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(input[0]);
    close(input[1]);
}

int on_run(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return 0;
}

ubus_object *own_object()
{
    static ubus_method method = {};
    method.name = "run";
    method.handler = on_run;
    static ubus_object_type type = {};
    type.name = "own";
    type.methods = &method;
    type.n_methods = 1;
    static ubus_object object = {};
    object.name = "own.run";
    object.type = &type;
    object.methods = &method;
    object.n_methods = 1;
    return &object;
}

// The connection that a failure has cost comes back by itself, from the loop.
void let_the_connection_return()
{
    for (int turn = 0; turn < 40; turn++) {
        uloop_run_timeout(10);
    }
}

TEST_F(LibraryBus, Connection)
{
    Broker broker;
    Peer peer("ombrine.run");
    static ubus_object *own;
    own = own_object();
    auto published = [] {
        let_the_connection_return();
        return std::string(objects_on_the_bus().find("own.run\n") != std::string::npos ? "published"
                                                                                       : "absent");
    };
    sweep({.name = "ubuslib_connect_init", .prepare = [] { uloop_init(); }, .run = ubuslib_connect_init});
    Operation publish{.name = "ubuslib_invoke_init",
                      .prepare =
                          [] {
                              uloop_init();
                              EXPECT_EQ(ubuslib_connect_init(), 0);
                          },
                      .run = [] { return ubuslib_invoke_init(1, &own, 1); },
                      .state = published,
                      .own_lines = true, // that the connection is lost
                      .recover = let_the_connection_return};
    sweep(publish);
    Operation withdraw = publish;
    withdraw.name = "ubuslib_invoke_exit";
    withdraw.prepare = [prepare = publish.prepare] {
        prepare();
        EXPECT_EQ(ubuslib_invoke_init(1, &own, 1), 0);
    };
    withdraw.run = [] { return ubuslib_invoke_exit(1, &own, 1); };
    withdraw.state = [] { return std::string(); }; // a connection in trouble is not told
    sweep(withdraw);
}

TEST_F(LibraryBus, Calls)
{
    Broker broker;
    Peer peer("ombrine.run");
    static unsigned replies;
    sweep({.name = "ubuslib_invoke_call",
           .prepare = [] { replies = 0; },
           .run =
               [] {
                   replies = 0;
                   return ubuslib_invoke_call(
                       "ombrine.run", "echo", nullptr, [](ubus_request *, int, blob_attr *) { replies++; },
                       nullptr);
               },
           .state = [] { return std::to_string(replies); }});
    // Asks again every 200 ms: one failure is no failure.
    sweep({.name = "ubuslib_task_status_wait",
           .prepare = [] {},
           .run = [] { return ubuslib_task_status_wait("ombrine.run", 5); }});
}

} // namespace
