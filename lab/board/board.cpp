#include "board.h"

#include <csignal>
#include <cstdlib>

namespace lab {

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
    if (frame.type == FrameType::Stdin) {
        executor_.input(frame.id, frame.payload);
    } else if (frame.type == FrameType::kill && !frame.payload.empty()) {
        executor_.kill(frame.id, frame.payload[0]);
        if (auto it = waiting_.find(frame.id); it != waiting_.end()) {
            answer(frame.id, "", 130);
        }
    } else if (frame.type == FrameType::exec) {
        std::vector<std::string> words = split_words(frame.payload, '\0');
        if (words.size() < 3) {
            channel_.send(FrameType::exit, frame.id, "failed no command");
            return;
        }
        std::string where = words[0];
        std::chrono::milliseconds limit(std::strtoul(words[1].c_str(), nullptr, 10));
        words.erase(words.begin(), words.begin() + 2);
        if (where == "agent") {
            command(frame.id, words);
        } else if (auto it = hosts_.find(where); it != hosts_.end()) {
            executor_.start(frame.id, it->second, std::move(words), limit);
        } else {
            channel_.send(FrameType::exit, frame.id, "failed no host is named " + where);
        }
    }
}

void Board::answer(uint32_t id, const std::string &text, int status)
{
    if (auto it = waiting_.find(id); it != waiting_.end()) {
        loop_.cancel(it->second);
        waiting_.erase(it);
    }
    if (!text.empty()) {
        channel_.send(status == 0 ? FrameType::Stdout : FrameType::Stderr, id, text);
    }
    channel_.send(FrameType::exit, id, "exit " + std::to_string(status));
}

// What the board itself is asked: services | hosts | wait SECONDS TEXT | start, stop, restart NAME |
// kill NAME SIGNAL-NUMBER.
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
    } else if (verb == "wait" && words.size() == 3) {
        wait_for_text(id, words);
    } else if (words.size() >= 2 && services_.known(words[1])) {
        change_service(id, words);
    } else {
        answer(id, "the board knows no such command\n", 2);
    }
}

void Board::wait_for_text(uint32_t id, const std::vector<std::string> &words)
{
    std::chrono::milliseconds limit(static_cast<long>(std::strtod(words[1].c_str(), nullptr) * 1000));
    waiting_[id] = loop_.after(limit, [this, id] { answer(id, "it was not said in time\n", 1); });
    log_.when_said(words[2], [this, id](const std::string &line, Clock::time_point at) {
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
        services_.stop(name, [this, id] { answer(id, "", 0); });
    } else if (verb == "restart") {
        services_.stop(name, start);
    } else if (verb == "kill" && words.size() == 3) {
        bool sent = services_.signal(name, std::atoi(words[2].c_str()));
        answer(id, sent ? "" : name + " is not running\n", sent ? 0 : 1);
    } else {
        answer(id, "the board knows no such command\n", 2);
    }
}

void Board::service_ended(const std::string &name, const std::string &how)
{
    log_.note(name + " ended: " + how);
    if (name != "daemon") {
        return;
    }
    // Who waits for the daemon to say something need not wait for the time limit.
    std::vector<uint32_t> ids;
    for (const auto &[id, timer] : waiting_) {
        ids.push_back(id);
    }
    for (uint32_t id : ids) {
        answer(id, "the daemon has ended: " + how + "\n", 3);
    }
}

} // namespace lab
