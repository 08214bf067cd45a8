// The event loop. One loop per process, so every test starts and ends it.
#include "support.h"

extern "C" {
#include <libubox/uloop.h>
}

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

class Uloop : public ::testing::Test {
protected:
    Uloop()
    {
        // What a shell starts in the background ignores this one, and the loop would leave that so.
        signal(SIGINT, SIG_DFL);
        uloop_handle_sigchld = true;
        EXPECT_EQ(uloop_init(), 0);
    }
    ~Uloop() override { uloop_done(); }
};

std::vector<int> fired;

struct Timer : uloop_timeout {
    explicit Timer(int number_) : uloop_timeout{}, number(number_)
    {
        cb = [](uloop_timeout *t) {
            auto *self = static_cast<Timer *>(t);
            fired.push_back(self->number);
            EXPECT_FALSE(t->pending);
            if (self->ends) {
                uloop_end();
            }
        };
    }
    ~Timer() { uloop_timeout_cancel(this); }
    int number;
    bool ends = false;
};

TEST_F(Uloop, InitTwiceIsFine)
{
    EXPECT_EQ(uloop_init(), 0);
}

TEST_F(Uloop, TimersFireInOrderOfTimeThenInsertion)
{
    fired.clear();
    Timer late(1), early(2), same_a(3), same_b(4), negative(5);
    late.ends = true;
    uloop_timeout_set(&late, 40);
    uloop_timeout_set(&early, 1);
    uloop_timeout_set(&same_a, 20);
    same_b.time = same_a.time;
    EXPECT_EQ(uloop_timeout_add(&same_b), 0);
    EXPECT_EQ(uloop_timeout_add(&same_b), -1);
    uloop_timeout_set(&negative, -1500);
    EXPECT_LT(uloop_timeout_remaining64(&negative), -1400);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(fired, (std::vector<int>{5, 2, 3, 4, 1}));
}

TEST_F(Uloop, CancelAndRemaining)
{
    fired.clear();
    Timer timer(1), end(2);
    EXPECT_EQ(uloop_timeout_cancel(&timer), -1);
    EXPECT_EQ(uloop_timeout_remaining64(&timer), -1);
    EXPECT_EQ(uloop_get_next_timeout(), -1);
    uloop_timeout_set(&timer, 500000);
    EXPECT_GT(uloop_timeout_remaining64(&timer), 499000);
    EXPECT_GT(uloop_get_next_timeout(), 499000);
    uloop_timeout_set(&timer, 0);
    EXPECT_EQ(uloop_get_next_timeout(), 0);
    EXPECT_EQ(uloop_timeout_cancel(&timer), 0);
    end.ends = true;
    uloop_timeout_set(&end, 1);
    uloop_run();
    EXPECT_EQ(fired, std::vector<int>{2});
}

TEST_F(Uloop, TimerWithoutCallbackIsTolerated)
{
    uloop_timeout timer = {};
    uloop_timeout_set(&timer, 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_FALSE(timer.pending);
}

TEST_F(Uloop, CallbackMayArmItsTimerAgain)
{
    static int count;
    count = 0;
    uloop_timeout timer = {};
    timer.cb = [](uloop_timeout *t) {
        if (++count == 3) {
            uloop_end();
        } else {
            uloop_timeout_set(t, 1);
        }
    };
    uloop_timeout_set(&timer, 1);
    uloop_run();
    EXPECT_EQ(count, 3);
}

TEST_F(Uloop, EndBeforeRunIsForgotten)
{
    uloop_end();
    EXPECT_FALSE(uloop_cancelling());
    Timer end(1);
    end.ends = true;
    fired.clear();
    uloop_timeout_set(&end, 1);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(fired, std::vector<int>{1});
}

TEST_F(Uloop, RunWithTimeoutIsOneTurn)
{
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(uloop_run_timeout(5), 0);
}

TEST_F(Uloop, EndOfANestedRunEndsTheOuterOne)
{
    static int after_inner;
    after_inner = 0;
    Timer end(1), never(2);
    end.ends = true;
    uloop_timeout starter = {};
    starter.cb = [](uloop_timeout *) {
        uloop_run();
        EXPECT_TRUE(uloop_cancelling());
        after_inner++;
    };
    uloop_timeout_set(&starter, 0);
    uloop_timeout_set(&end, 5);
    uloop_timeout_set(&never, 60000);
    uloop_run();
    EXPECT_EQ(after_inner, 1);
    EXPECT_FALSE(uloop_cancelling());
}

// What a descriptor's callback saw.
struct Seen {
    unsigned int events;
    bool eof;
    bool error;
    bool registered;
    bool operator==(const Seen &) const = default;
};

struct Watch : uloop_fd {
    explicit Watch(int fd_, unsigned int flags_ = ULOOP_READ) : uloop_fd{}
    {
        fd = fd_;
        cb = [](uloop_fd *u, unsigned int events) {
            static_cast<Watch *>(u)->calls.push_back({events, u->eof, u->error, u->registered});
        };
        EXPECT_EQ(uloop_fd_add(this, flags_), 0);
    }
    ~Watch() { uloop_fd_delete(this); }
    std::vector<Seen> calls;
};

struct Pair {
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fd), 0); }
    ~Pair()
    {
        close(fd[0]);
        if (fd[1] >= 0) {
            close(fd[1]);
        }
    }
    void close_peer()
    {
        close(fd[1]);
        fd[1] = -1;
    }
    int fd[2];
};

void turns(int count)
{
    for (int i = 0; i < count; i++) {
        uloop_run_timeout(0);
    }
}

TEST_F(Uloop, DataIsReportedUntilRead)
{
    Pair pair;
    Watch watch(pair.fd[0]);
    EXPECT_NE(fcntl(pair.fd[0], F_GETFL) & O_NONBLOCK, 0);
    ASSERT_EQ(write(pair.fd[1], "x", 1), 1);
    turns(3);
    EXPECT_EQ(watch.calls, (std::vector<Seen>(3, {ULOOP_READ, false, false, true})));
}

TEST_F(Uloop, EdgeIsReportedOnce)
{
    Pair pair;
    Watch watch(pair.fd[0], ULOOP_READ | ULOOP_EDGE_TRIGGER);
    ASSERT_EQ(write(pair.fd[1], "x", 1), 1);
    turns(3);
    EXPECT_EQ(watch.calls.size(), 1u);
}

TEST_F(Uloop, BlockingLeavesTheModeAlone)
{
    Pair pair;
    Watch watch(pair.fd[0], ULOOP_READ | ULOOP_BLOCKING);
    EXPECT_EQ(fcntl(pair.fd[0], F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(Uloop, ClosedPeerIsReportedOnceAndRemoved)
{
    Pair pair;
    Watch watch(pair.fd[0]);
    pair.close_peer();
    turns(3);
    EXPECT_EQ(watch.calls, (std::vector<Seen>{{ULOOP_READ, true, true, false}}));
}

TEST_F(Uloop, ClosedPeerWithErrorCallbackStays)
{
    Pair pair;
    Watch watch(pair.fd[0], ULOOP_READ | ULOOP_ERROR_CB);
    pair.close_peer();
    turns(3);
    EXPECT_EQ(watch.calls, (std::vector<Seen>(3, {ULOOP_READ, true, true, true})));
}

TEST_F(Uloop, HalfClosedPeerIsReportedUntilDeleted)
{
    Pair pair;
    Watch watch(pair.fd[0]);
    shutdown(pair.fd[1], SHUT_WR);
    turns(3);
    EXPECT_EQ(watch.calls, (std::vector<Seen>(3, {ULOOP_READ, true, false, true})));
    uloop_fd_delete(&watch);
    turns(2);
    EXPECT_EQ(watch.calls.size(), 3u);
}

TEST_F(Uloop, EmptyPipeWhoseWriterIsGone)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Watch watch(ends[0]);
    close(ends[1]);
    turns(3);
    EXPECT_EQ(watch.calls, (std::vector<Seen>{{0, false, true, false}}));
    close(ends[0]);
}

TEST_F(Uloop, FlagsCanChangeAndVanish)
{
    Pair pair;
    Watch watch(pair.fd[0]);
    EXPECT_EQ(uloop_fd_add(&watch, ULOOP_WRITE), 0);
    turns(1);
    EXPECT_EQ(watch.calls, (std::vector<Seen>{{ULOOP_WRITE, false, false, true}}));
    EXPECT_EQ(uloop_fd_add(&watch, 0), 0);
    EXPECT_FALSE(watch.registered);
    EXPECT_EQ(uloop_fd_delete(&watch), 0);
}

TEST_F(Uloop, RegularFilesCannotBeWatched)
{
    support::TempDir dir;
    uloop_fd file = {};
    file.fd = open(dir.path("f").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    EXPECT_EQ(uloop_fd_add(&file, ULOOP_READ), -1);
    EXPECT_FALSE(file.registered);
    close(file.fd);
}

TEST_F(Uloop, MissingCallbackIsSkipped)
{
    Pair pair;
    Watch watch(pair.fd[0]);
    watch.cb = nullptr;
    ASSERT_EQ(write(pair.fd[1], "x", 1), 1);
    turns(2);
}

// Both descriptors are ready at once; whichever callback runs first removes the other.
TEST_F(Uloop, DeletedDescriptorsAreNotServedAnyMore)
{
    static uloop_fd *watches[2];
    static int calls;
    calls = 0;
    Pair pairs[2];
    uloop_fd fds[2] = {};
    for (int i = 0; i < 2; i++) {
        watches[i] = &fds[i];
        fds[i].fd = pairs[i].fd[0];
        fds[i].cb = [](uloop_fd *u, unsigned int) {
            calls++;
            uloop_fd_delete(u == watches[0] ? watches[1] : watches[0]);
        };
        ASSERT_EQ(uloop_fd_add(&fds[i], ULOOP_READ), 0);
        // A full close, so that the loop itself has taken the descriptor out before the other callback runs.
        pairs[i].close_peer();
    }
    turns(4);
    EXPECT_EQ(calls, 1);
}

TEST_F(Uloop, TimersRunBetweenDescriptors)
{
    static std::vector<char> order;
    order.clear();
    Pair pairs[2];
    uloop_fd fds[2] = {};
    static uloop_timeout timer;
    timer = {};
    timer.cb = [](uloop_timeout *) { order.push_back('t'); };
    for (int i = 0; i < 2; i++) {
        fds[i].fd = pairs[i].fd[0];
        fds[i].cb = [](uloop_fd *u, unsigned int) {
            order.push_back('f');
            uloop_fd_delete(u);
            uloop_timeout_set(&timer, 0);
        };
        uloop_fd_add(&fds[i], ULOOP_READ);
        ASSERT_EQ(write(pairs[i].fd[1], "x", 1), 1);
    }
    turns(3);
    EXPECT_EQ(order, (std::vector<char>{'f', 't', 'f', 't'}));
}

TEST_F(Uloop, EdgeDuringItsOwnCallbackComesAfterwards)
{
    static int calls;
    static int depth;
    static int writer;
    calls = 0;
    depth = 0;
    Pair pair;
    writer = pair.fd[1];
    uloop_fd fd = {};
    fd.fd = pair.fd[0];
    fd.cb = [](uloop_fd *, unsigned int) {
        EXPECT_EQ(depth++, 0) << "called within itself";
        if (++calls == 1) {
            EXPECT_EQ(write(writer, "y", 1), 1);
            uloop_run_timeout(0);
        }
        depth--;
    };
    ASSERT_EQ(uloop_fd_add(&fd, ULOOP_READ | ULOOP_EDGE_TRIGGER), 0);
    ASSERT_EQ(write(pair.fd[1], "x", 1), 1);
    turns(1);
    EXPECT_EQ(calls, 2);
    uloop_fd_delete(&fd);
}

TEST_F(Uloop, BridgeHearsOfAddAndDelete)
{
    static std::vector<unsigned int> heard;
    heard.clear();
    uloop_fd_set_cb = [](uloop_fd *, unsigned int flags) { heard.push_back(flags); };
    {
        Pair pair;
        Watch watch(pair.fd[0]);
    }
    uloop_fd_set_cb = nullptr;
    EXPECT_EQ(heard, (std::vector<unsigned int>{ULOOP_READ, 0}));
}

struct Process : uloop_process {
    Process() : uloop_process{}
    {
        cb = [](uloop_process *p, int raw_status) {
            auto *self = static_cast<Process *>(p);
            EXPECT_FALSE(p->pending);
            self->status = raw_status;
            uloop_end();
        };
    }
    int status = -1;
};

TEST_F(Uloop, EndOfAChildComesWithItsRawStatus)
{
    Process process;
    process.pid = fork();
    if (process.pid == 0) {
        _exit(7);
    }
    EXPECT_EQ(uloop_process_add(&process), 0);
    EXPECT_EQ(uloop_process_add(&process), -1);
    uloop_run();
    EXPECT_EQ(process.status, 0x700);
    EXPECT_EQ(uloop_process_delete(&process), -1);
}

TEST_F(Uloop, UnknownChildrenAreReapedToo)
{
    Process known;
    const pid_t unknown = fork();
    if (unknown == 0) {
        _exit(1);
    }
    siginfo_t info = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(unknown), &info, WEXITED | WNOWAIT), 0);
    known.pid = fork();
    if (known.pid == 0) {
        raise(SIGKILL);
    }
    uloop_process_add(&known);
    uloop_run();
    EXPECT_TRUE(WIFSIGNALED(known.status));
    EXPECT_EQ(waitpid(unknown, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(Uloop, DeletedProcessIsNotReported)
{
    Process process;
    process.pid = fork();
    if (process.pid == 0) {
        _exit(0);
    }
    uloop_process_add(&process);
    EXPECT_EQ(uloop_process_delete(&process), 0);
    EXPECT_EQ(waitpid(process.pid, nullptr, 0), process.pid);
}

int run_and_signal(int number)
{
    static int signal_number;
    signal_number = number;
    uloop_timeout timer = {};
    timer.cb = [](uloop_timeout *) { raise(signal_number); };
    uloop_timeout_set(&timer, 1);
    return uloop_run();
}

TEST_F(Uloop, EndSignalsAreTheResult)
{
    EXPECT_EQ(run_and_signal(SIGTERM), SIGTERM);
    EXPECT_EQ(run_and_signal(SIGINT), SIGINT);
}

TEST_F(Uloop, SignalFromOutsideWakesAWaitingLoop)
{
    const pid_t parent = getpid();
    support::Child sender(std::function<int()>([parent] {
        // Again and again, since the first may come before the loop waits.
        while (kill(parent, SIGTERM) == 0) {
            usleep(5000);
        }
        return 1;
    }));
    EXPECT_EQ(uloop_run(), SIGTERM);
}

void (*disposition(int number))(int)
{
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler;
}

void own_handler(int) {}

TEST(UloopSignals, TakenOverOnlyWhereNobodyElseDid)
{
    uloop_done();
    signal(SIGINT, own_handler);
    signal(SIGTERM, SIG_DFL);
    signal(SIGCHLD, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    uloop_handle_sigchld = false;
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_EQ(disposition(SIGINT), own_handler);
    EXPECT_NE(disposition(SIGTERM), SIG_DFL);
    EXPECT_EQ(disposition(SIGCHLD), SIG_DFL);
    EXPECT_EQ(disposition(SIGPIPE), SIG_IGN);
    EXPECT_EQ(disposition(SIGHUP), SIG_DFL);
    uloop_done();
    EXPECT_EQ(disposition(SIGINT), own_handler);
    EXPECT_EQ(disposition(SIGTERM), SIG_DFL);
    EXPECT_EQ(disposition(SIGPIPE), SIG_IGN);
    signal(SIGINT, SIG_DFL);
}

TEST(UloopSignals, HandlerInstalledLaterStays)
{
    ASSERT_EQ(uloop_init(), 0);
    signal(SIGTERM, own_handler);
    uloop_done();
    EXPECT_EQ(disposition(SIGTERM), own_handler);
    signal(SIGTERM, SIG_DFL);
}

TEST(UloopDone, LeavesNoDescriptorsAndForgetsTimers)
{
    auto count = [] {
        int open_fds = 0;
        for (int fd = 0; fd < 256; fd++) {
            open_fds += fcntl(fd, F_GETFD) >= 0;
        }
        return open_fds;
    };
    const int before = count();
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_EQ(count(), before + 3);
    Timer timer(1);
    uloop_timeout_set(&timer, 1000);
    uloop_done();
    EXPECT_EQ(count(), before);
    EXPECT_FALSE(timer.pending);
    EXPECT_EQ(uloop_timeout_cancel(&timer), -1);
}

} // namespace
