// The daemon and the oracle side by side: each step is done to both, and everything that can be seen of them
// is compared: statuses, records, the switch's registers, devices and all else below, and where frames go.
#pragma once

#include "daemon.h"
#include "forwarder.h"
#include "isolation.h"
#include "message.h"
#include "oracle.h"
#include "process.h"
#include "switch_regs.h"

#include <gtest/gtest.h>
#include <memory>

namespace model {

// Boards on which ports mean different things.
extern const BoardPlan one_cpu_board, two_cpu_board, shared_role_board, lan1_on_port0_board;

class Bench : public testing::Test {
protected:
    Bench();
    ~Bench() override;

    // A board that has just been switched on, and the daemon started without any interface.
    void board(const BoardPlan &plan);
    // The daemon dies or ends; with clean-up, the image's stop action removes what it made. Then it starts.
    int restart(bool cleanup, const std::vector<Section> &lans = {}, const std::vector<Section> &wans = {});

    // Each returns the status, or -1000 where daemon and oracle disagree on it.
    int add(const Fields &fields);
    int config(const Fields &fields);
    int del(const std::vector<std::string> &names);
    int enable(const std::vector<std::string> &names, bool enable);
    int port_add(const std::string &name);
    int port_del(const std::string &name);
    void link(unsigned port, bool up);
    // The nth request to the kernel in the next step is refused.
    void refuse(unsigned nth);

    // Compares everything. Stops at the first difference of a test, which tells enough.
    void compare();
    // Frames from every port, with every tag that matters: they come out where the oracle's VLANs join ports.
    void compare_frames();
    bool differs() const { return HasFailure(); }

    // How many of something: what a variable of the environment says, for shorter and longer runs.
    static unsigned wanted(const char *variable, unsigned otherwise);

    std::unique_ptr<Oracle> oracle;
    seam::System &below = seam::world.system; // the daemon
    // How often each kind of step had each status.
    std::map<std::string, std::map<int, unsigned>> tally;
    Isolation isolation;

private:
    int agree(const std::string &step, int daemon, int expected);
    void compare_records();
    void compare_switch();
    void compare_path(unsigned port, unsigned tag);

    std::vector<uint32_t> block_ = std::vector<uint32_t>(lab::switch_block_size / 4);
    std::unique_ptr<lab::Forwarder> forwarder_;
    std::set<unsigned> lan_ports_; // that may be LANs'
    Isolation::Opening opening_;   // of the next step
};

} // namespace model
