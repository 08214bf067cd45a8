#pragma once
// Runs the commands that come over the channel: output streamed back, input fed.

#include "channel.h"
#include "hosts.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace lab {

class Executor {
public:
    Executor(Loop &loop, Channel &channel);
    ~Executor();
    Executor(const Executor &) = delete;
    Executor &operator=(const Executor &) = delete;

    // Answers with Exit in any case, at once or when the command has ended. environment: beside the host's.
    void start(uint32_t id, const Host &host, std::vector<std::string> words,
               std::vector<std::string> environment = {});
    void input(uint32_t id, std::string_view data);
    void kill(uint32_t id, int signal);

private:
    struct Job;

    void stdin_ready(Job &job);
    void output_ready(Job &job, bool error);
    void close_output(Job &job, bool error);
    void ended(Job &job, int wait_status);
    void finish_if_done(Job &job);
    void hold_back(bool hold);

    Loop &loop_;
    Channel &channel_;
    std::map<uint32_t, std::unique_ptr<Job>> jobs_;
};

// "exit N" or "signal N" for what waitpid gave.
std::string exit_text(int wait_status);

} // namespace lab
