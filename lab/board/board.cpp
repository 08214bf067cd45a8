#include "board.h"

#include "../hw/places.h"

#include <csignal>
#include <cstdlib>

namespace lab {
namespace {

constexpr const char *no_such_command = "the board's commands are: services, hosts, wait SECONDS TEXT, "
                                        "start|stop|restart PROGRAM, kill PROGRAM SIGNAL; "
                                        "programs: daemon, broker, siblings, switch\n";

} // namespace

Board::Board(Plan plan, int channel)
    : plan_(std::move(plan)),
      channel_(
          loop_, channel, channel, [this](Frame frame) { take(std::move(frame)); }, [this] { loop_.stop(); }),
      log_(loop_, "/dev/log", "/var/log/messages"), executor_(loop_, channel_),
      services_(loop_, hosts_.emplace("router", Host::here("router")).first->second)
{
    services_.on_end([this](const std::string &name, const std::string &how) { service_ended(name, how); });
}

void Board::run(uint32_t id)
{
    channel_.send(FrameType::exit, id, "exit 0");
    loop_.run();
}

void Board::take(Frame frame)
{
    if (frame.type == FrameType::input) {
        executor_.input(frame.id, frame.payload);
    } else if (frame.type == FrameType::kill && !frame.payload.empty()) {
        executor_.kill(frame.id, frame.payload[0]);
        if (waiting_.count(frame.id) != 0) {
            answer(frame.id, "", 130);
        }
        if (auto it = stopping_.find(frame.id); it != stopping_.end()) {
            services_.signal(it->second, frame.payload[0]);
        }
    } else if (frame.type == FrameType::exec) {
        std::vector<std::string> words = split_words(frame.payload, '\0');
        if (words.size() < 2) {
            channel_.send(FrameType::exit, frame.id, "failed no command");
            return;
        }
        std::string where = words[0];
        words.erase(words.begin());
        if (where == "agent") {
            command(frame.id, words);
        } else if (auto it = hosts_.find(where); it != hosts_.end()) {
            executor_.start(frame.id, it->second, std::move(words), tools_environment(where));
        } else {
            channel_.send(FrameType::exit, frame.id,
                          "failed no host is named " + where + " (there are " + host_names() + ")");
        }
    }
}

// The router's own tools find the emulated hardware, as they find a driver on a router.
std::vector<std::string> Board::tools_environment(const std::string &host)
{
    return host == "router" ? std::vector<std::string>{std::string("LD_PRELOAD=") + shim_path}
                            : std::vector<std::string>{};
}

std::string Board::host_names() const
{
    std::string names = "router";
    for (const HostPlan &host : plan_.hosts) {
        names += ", " + host.name;
    }
    return names + ", agent, machine";
}

void Board::answer(uint32_t id, const std::string &text, int status)
{
    waiting_.erase(id);
    stopping_.erase(id);
    if (!text.empty()) {
        channel_.send(status == 0 ? FrameType::output : FrameType::errors, id, text);
    }
    channel_.send(FrameType::exit, id, "exit " + std::to_string(status));
}

// What the board itself is asked: services | hosts | wait TEXT | start, stop, restart NAME |
// kill NAME SIGNAL-NUMBER. Who waits, for a text or for the end of a program, sets a limit and sends the
// signal that ends the waiting or the program: this clock may run too fast.
void Board::command(uint32_t id, const std::vector<std::string> &words)
{
    const std::string &verb = words[0];
    if (verb == "services") {
        answer(id, services_.report(), 0);
    } else if (verb == "hosts") {
        std::string text = "router\n";
        for (const HostPlan &host : plan_.hosts) {
            text += host.name + " " + std::to_string(host.port) + "\n";
        }
        answer(id, text, 0);
    } else if (verb == "wait" && words.size() == 2) {
        wait_for_text(id, words[1]);
    } else if (words.size() >= 2 && services_.known(words[1])) {
        change_service(id, words);
    } else {
        answer(id, no_such_command, 2);
    }
}

void Board::wait_for_text(uint32_t id, const std::string &text)
{
    waiting_.insert(id);
    log_.when_said(text, [this, id](const std::string &line, Clock::time_point at) {
        if (waiting_.count(id) == 0) {
            return;
        }
        std::string since = "-";
        if (auto begun = services_.started("daemon")) {
            since = std::to_string(std::chrono::duration<double>(at - *begun).count());
        }
        answer(id, since + " " + line + "\n", 0);
    });
}

void Board::change_service(uint32_t id, const std::vector<std::string> &words)
{
    const std::string &verb = words[0], &name = words[1];
    auto start = [this, id, name] {
        try {
            if (name == "daemon") {
                log_.forget_lines();
            }
            services_.start(name);
            answer(id, "", 0);
        } catch (const std::exception &error) {
            answer(id, std::string(error.what()) + "\n", 1);
        }
    };
    if (verb == "start") {
        start();
    } else if (verb == "stop") {
        stopping_[id] = name;
        services_.stop(name, [this, id] { answer(id, "", 0); });
    } else if (verb == "restart") {
        stopping_[id] = name;
        services_.stop(name, start);
    } else if (verb == "kill" && words.size() == 3) {
        bool sent = services_.signal(name, std::atoi(words[2].c_str()));
        answer(id, sent ? "" : name + " is not running\n", sent ? 0 : 1);
    } else {
        answer(id, no_such_command, 2);
    }
}

void Board::service_ended(const std::string &name, const std::string &how)
{
    log_.note(name + " ended: " + how);
    if (name != "daemon") {
        return;
    }
    // Who waits for the daemon to say something need not wait for the time limit.
    for (uint32_t id : std::set<uint32_t>(waiting_)) {
        answer(id, "the daemon has ended: " + how + "\n", 3);
    }
}

} // namespace lab
