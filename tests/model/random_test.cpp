// Anything that may come: random requests, sensible and not, link events, refusals of the kernel, restarts
// with random configurations. The daemon and the oracle stay alike at every step.

#include "bench.h"
#include "generator.h"

namespace model {
namespace {

constexpr unsigned steps = 120;

class Random : public Bench {
public:
    using Bench::add, Bench::del, Bench::config, Bench::enable, Bench::port_add, Bench::port_del;

protected:
    void start(unsigned seed)
    {
        generator_ = Generator{seed};
        const BoardPlan *boards[] = {&one_cpu_board, &two_cpu_board, &shared_role_board,
                                     &lan1_on_port0_board};
        board(*boards[seed % 4]);
    }
    void run(unsigned seed)
    {
        start(seed);
        for (unsigned i = 0; i < steps && !differs(); i++) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
            if (generator_.chance(8)) {
                refuse(1 + generator_.pick(6));
            }
            step();
            compare_frames();
        }
    }

private:
    void step()
    {
        const Action action = generator_.next(*oracle);
        switch (action.kind) {
        case Action::Kind::link:
            return link(action.port, action.on);
        case Action::Kind::restart:
            restart(action.on, action.lans, action.wans);
            return;
        default:
            request(*this, action);
        }
    }

    Generator generator_;
};

TEST_F(Random, DaemonAndOracleStayAlike)
{
    const unsigned seeds = wanted("MODEL_SEEDS", 200);
    for (unsigned seed = 1; seed <= seeds && !differs(); seed++) {
        run(seed);
    }
    // A run in which one kind of request always fails, or never, would prove little.
    for (const auto &[step, statuses] : tally) {
        unsigned all = 0;
        for (const auto &[status, times] : statuses) {
            all += times;
        }
        EXPECT_GT(statuses.contains(0) ? statuses.at(0) : 0, all / 20) << step;
        EXPECT_GE(statuses.size(), 2U) << step;
    }
    // So would registers that are never written, and starts that join nothing.
    EXPECT_GT(isolation.writes(), seeds * steps / 4);
    EXPECT_GT(isolation.among_lans(), seeds);
    RecordProperty("writes", static_cast<int>(isolation.writes()));
    RecordProperty("among_lans", static_cast<int>(isolation.among_lans()));
    RecordProperty("by_clearing", static_cast<int>(isolation.by_clearing()));
    RecordProperty("steps", static_cast<int>(seeds * steps));
}

} // namespace
} // namespace model
