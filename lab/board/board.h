#pragma once
// One raised board: its hosts, programs, log and what the channel asks of it. Lives in the first process of
// the board's name spaces; when that process ends, all of it is gone.

#include "channel.h"
#include "executor.h"
#include "plan.h"
#include "services.h"
#include "syslog.h"

#include <map>
#include <memory>
#include <set>
#include <string>

namespace lab {

class Board {
public:
    // The channel's descriptor stays the caller's. Call raise, then run.
    Board(Plan plan, int channel);

    // Hosts, switch, cables, broker, siblings, daemon, in this order; blocks. Throws what went wrong.
    void raise();
    // Answers request id that the board is up (or why not: reason not empty), and serves until the channel
    // ends.
    void run(uint32_t id);

private:
    void step(const std::string &text); // tells the operator what is done with root's rights
    void make_hosts();
    void start_switch();
    void plug_cables();
    void start_bus();
    void start_rest();

    void take(Frame frame);
    void command(uint32_t id, const std::vector<std::string> &words);
    void answer(uint32_t id, const std::string &text, int status);
    void wait_for_text(uint32_t id, const std::string &text);
    void change_service(uint32_t id, const std::vector<std::string> &words);
    static std::vector<std::string> tools_environment(const std::string &host);
    std::string host_names() const;
    void service_ended(const std::string &name, const std::string &how);

    Plan plan_;
    Loop loop_;
    Channel channel_;
    Syslog log_;
    Executor executor_;
    std::map<std::string, Host> hosts_;
    Host parking_; // for the ends of cables that nobody holds
    Services services_;
    std::set<uint32_t> waiting_;               // requests that wait for a text
    std::map<uint32_t, std::string> stopping_; // requests that wait for the end of a program
};

} // namespace lab
