// What a call costs: beside a call that does nothing, and that one beside two processes that only take turns.

#include "bus.h"
#include "pairs.h"
#include "questions.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr size_t ball_size = 64;
constexpr int calls_of_a_rate = 320;
constexpr int calls_on_their_way = 16;

// Another process that sends back whatever comes.
class echo {
public:
    echo()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            give_up("no pair of sockets");
        }
        ours_ = ends[0];
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            char ball[ball_size];
            while (read(ends[1], ball, sizeof(ball)) == sizeof(ball) &&
                   write(ends[1], ball, sizeof(ball)) > 0) {
            }
            _exit(0);
        }
        close(ends[1]);
    }
    echo(const echo &) = delete;
    echo &operator=(const echo &) = delete;
    ~echo()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        close(ours_);
    }

    void there_and_back() const
    {
        char ball[ball_size] = {};
        if (write(ours_, ball, sizeof(ball)) != sizeof(ball) ||
            read(ours_, ball, sizeof(ball)) != sizeof(ball)) {
            give_up("the ball was lost");
        }
    }

private:
    int ours_ = -1;
    pid_t child_ = -1;
};

} // namespace

void ask_relay(const words &given)
{
    const int rounds = std::stoi(given.at(0));
    const echo partner;
    const limit_object empty("bench.empty");
    client bus;
    const uint32_t object = bus.find("bench.empty");
    message nothing("{}");
    pairs latency;
    pairs rate;
    for (int i = 0; i < rounds; i++) {
        const double limit = microseconds([&] { partner.there_and_back(); });
        latency.add(microseconds([&] { bus.must(object, "call", nothing.attribute()); }), limit);
    }
    for (int i = 0; i < rounds / calls_of_a_rate + 5; i++) {
        const double limit = microseconds([&] {
            for (int k = 0; k < calls_of_a_rate; k++) {
                partner.there_and_back();
            }
        });
        const double ours = microseconds([&] {
            bus.calls_at_once(object, "call", nothing.attribute(), calls_of_a_rate, calls_on_their_way);
        });
        rate.add(ours / calls_of_a_rate, limit / calls_of_a_rate);
    }
    latency.print("relay.latency");
    rate.print("relay.many");
}

void ask_call(const words &given)
{
    const std::string name = given.at(0);
    const int rounds = std::stoi(given.at(1));
    const char *method = given.at(3).c_str();
    message arguments(given.size() > 4 ? given[4] : "{}");
    message nothing("{}");
    client bus;
    const uint32_t target = bus.find(given[2]);
    std::vector<char> answer;
    if (const int status = bus.call(target, method, arguments.attribute(), &answer)) {
        give_up(name + " answered " + std::to_string(status));
    }
    const size_t size = answer.size();
    const limit_object empty("bench.empty");
    const limit_object same("bench.same", std::move(answer));
    const uint32_t without = bus.find("bench.empty");
    const uint32_t with = bus.find("bench.same");
    pairs beside_empty;
    pairs beside_same;
    for (int i = 0; i < rounds; i++) {
        const double limit = microseconds([&] { bus.must(without, "call", nothing.attribute()); });
        const double ours = microseconds([&] { bus.must(target, method, arguments.attribute()); });
        beside_same.add(ours, microseconds([&] { bus.must(with, "call", nothing.attribute()); }));
        beside_empty.add(ours, limit);
    }
    beside_empty.print("call." + name + ".empty");
    beside_same.print("call." + name + ".same");
    std::printf("call.%s.bytes %zu\n", name.c_str(), size);
}

} // namespace bench
