// lab-siblings: the programs that share the router's bus with the daemon, in one process: the supervisor
// ("service"), the sibling daemon it waits for ("ombrine.run") and the DHCP server it hands its pools to
// ("dnsmasq.dhcp").
//
// Exit status: 0 after SIGTERM or SIGINT, once every supervised process has ended; 1 when an object's name is
// taken; 2 for wrong options. Prints "ready" on standard output when the objects are on the bus.
#include "command_line.h"
#include "dhcp_recorder.h"
#include "service_object.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Options {
    std::string socket;
    std::string log;
    std::string record;
    std::string jail = "/sbin/ujail";
    int ombrine_delay_ms = 0;
    bool ombrine = true;
};

constexpr const char *usage =
    "usage: lab-siblings [options]\n"
    "Offers the bus objects service, ombrine.run and dnsmasq.dhcp.\n\n"
    "  --socket PATH        the broker's socket (default: the library's)\n"
    "  --log FILE           append the output of supervised processes here (default: standard error)\n"
    "  --jail PROGRAM       starts instances with a jail (default: /sbin/ujail); where it is not\n"
    "                       there, they are started as others are\n"
    "  --dhcp-record FILE   append what dnsmasq.dhcp is given here, a line of JSON each\n"
    "  --ombrine-delay MS   offer ombrine.run only after this time\n"
    "  --no-ombrine         never offer ombrine.run\n"
    "  --help               this text\n";

Options parse(int argc, char **argv)
{
    Options options;
    lab::CommandLine line("lab-siblings", usage);
    line.text("socket", options.socket);
    line.text("log", options.log);
    line.text("dhcp-record", options.record);
    line.text("jail", options.jail);
    line.value("ombrine-delay", [&](const std::string &text) {
        char *end = nullptr;
        const long value = strtol(text.c_str(), &end, 10);
        if (end == text.c_str() || *end || value < 0 || value > 3'600'000) {
            line.wrong("--ombrine-delay takes milliseconds, at most an hour");
        }
        options.ombrine_delay_ms = static_cast<int>(value);
    });
    line.flag("no-ombrine", options.ombrine, false);
    if (!line.parse(argc, argv)) {
        line.wrong("nothing but options");
    }
    return options;
}

bool offer(lab::Bus &bus, lab::BusObject &object, const char *name)
{
    const int status = bus.offer(object);
    if (status != 0) {
        fprintf(stderr, "lab-siblings: cannot offer %s: %s\n", name, ubus_strerror(status));
    }
    return status == 0;
}

int run(const Options &options)
{
    uloop_init();
    bool failed = false;
    lab::OutputLog log(options.log);
    lab::BusObject ombrine("ombrine.run");
    ombrine.add_method("run", nullptr, 0,
                       [](blob_attr *, const auto &) { return static_cast<int>(UBUS_STATUS_OK); });
    lab::DhcpRecorder dhcp(options.record);
    lab::Bus bus(options.socket);
    lab::ServiceObject service(log, options.jail);

    const auto give_up = [&failed] {
        failed = true;
        uloop_end();
    };
    lab::Timer ombrine_timer([&] {
        if (!offer(bus, ombrine, "ombrine.run")) {
            give_up();
        }
    });
    // The objects are offered from the loop: ending it has no effect before it runs.
    lab::Timer ready_timer([&] {
        if (!offer(bus, service.object(), "service") || !offer(bus, dhcp.object(), "dnsmasq.dhcp")) {
            give_up();
            return;
        }
        if (options.ombrine && options.ombrine_delay_ms == 0 && !offer(bus, ombrine, "ombrine.run")) {
            give_up();
            return;
        }
        if (options.ombrine && options.ombrine_delay_ms > 0) {
            ombrine_timer.set(options.ombrine_delay_ms);
        }
        puts("ready");
        fflush(stdout);
    });
    bus.start([&] { ready_timer.set(0); });
    uloop_run();

    service.services().remove_all();
    while (!service.services().empty()) {
        uloop_run_timeout(100);
    }
    return failed ? 1 : 0;
}

} // namespace

int main(int argc, char **argv)
{
    return run(parse(argc, argv));
}
