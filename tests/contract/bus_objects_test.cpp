#include "bus_world.h"
#include "platform/bus.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

long milliseconds_since(Clock::time_point begin)
{
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// Runs the event loop until a condition holds.
bool run_until(const std::function<bool()> &condition, int milliseconds = 8000)
{
    auto begin = Clock::now();
    while (!condition() && milliseconds_since(begin) < milliseconds) {
        uloop_run_timeout(10);
    }
    return condition();
}

// Objects of our own, each with the method "run".
class OwnObjects {
public:
    OwnObjects(std::initializer_list<const char *> names)
    {
        method_.name = "run";
        method_.handler = [](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
            ++served;
            return 0;
        };
        type_.name = "own";
        type_.methods = &method_;
        type_.n_methods = 1;
        for (const char *name : names) {
            ubus_object &object = objects_[count_];
            object.name = name;
            object.type = &type_;
            object.methods = &method_;
            object.n_methods = 1;
            list_[count_++] = &object;
        }
    }
    ubus_object **list() { return list_; }
    int count() const { return count_; }
    static int served;

private:
    ubus_method method_ = {};
    ubus_object_type type_ = {};
    ubus_object objects_[8] = {};
    ubus_object *list_[8] = {};
    int count_ = 0;
};
int OwnObjects::served = 0;

// Connects and registers all of them.
int offer(OwnObjects &own)
{
    const int result = ubuslib_connect_init();
    return result != 0 ? result : ubuslib_invoke_init(1, own.list(), own.count());
}

bool on_the_bus(const std::string &object)
{
    return contains("\n" + objects_on_the_bus(), "\n" + object + "\n");
}

// Calls "run" of an object from another process while our loop runs; its exit status.
int call_from_outside(const std::string &object)
{
    pid_t child = fork();
    if (child == 0) {
        ubus_context context = {};
        uint32_t id = 0;
        blob_buf empty = {};
        blob_buf_init(&empty, 0);
        bool good = ubus_connect_ctx(&context, nullptr) == 0 &&
                    ubus_lookup_id(&context, object.c_str(), &id) == 0 &&
                    ubus_invoke(&context, id, "run", empty.head, nullptr, nullptr, 2000) == 0;
        _exit(good ? 0 : 1);
    }
    static int status;
    static bool done;
    done = false;
    uloop_process waiting = {};
    waiting.pid = child;
    waiting.cb = [](uloop_process *, int raw) {
        status = raw;
        done = true;
    };
    uloop_process_add(&waiting);
    return run_until([] { return done; }) ? status : -1;
}

using BusObjectsTest = BusTest;

TEST_F(BusObjectsTest, ConnectingNeedsABroker)
{
    EXPECT_NE(ubuslib_connect_init(), 0);
    Broker broker;
    EXPECT_EQ(ubuslib_connect_init(), 0);
    EXPECT_EQ(ubuslib_connect_init(), 0) << "connected already";
}

TEST_F(BusObjectsTest, ObjectsAreRegisteredAndServed)
{
    Broker broker;
    OwnObjects own = {"own.one", "own.two"};
    ASSERT_EQ(offer(own), 0);
    EXPECT_TRUE(on_the_bus("own.one"));
    EXPECT_TRUE(on_the_bus("own.two"));
    EXPECT_EQ(call_from_outside("own.two"), 0);
    EXPECT_EQ(OwnObjects::served, 1);
}

TEST_F(BusObjectsTest, RegistrationNeedsConnectionFlagAndObjects)
{
    Broker broker;
    OwnObjects own = {"own.one"};
    EXPECT_NE(ubuslib_invoke_init(1, own.list(), 1), 0);
    EXPECT_EQ(errno, ENOTCONN);
    ASSERT_EQ(ubuslib_connect_init(), 0);
    ubus_object *none[] = {nullptr};
    EXPECT_NE(ubuslib_invoke_init(0, own.list(), 1), 0);
    EXPECT_NE(ubuslib_invoke_init(1, nullptr, 1), 0);
    EXPECT_NE(ubuslib_invoke_init(1, own.list(), 0), 0);
    EXPECT_NE(ubuslib_invoke_init(1, none, 1), 0);
    EXPECT_NE(ubuslib_invoke_exit(2, own.list(), 1), 0);
    EXPECT_FALSE(on_the_bus("own.one"));
}

TEST_F(BusObjectsTest, ANameThatIsTakenIsAnErrorAndNothingStays)
{
    Broker broker;
    Peer other("own.two");
    OwnObjects own = {"own.one", "own.two", "own.three"};
    ASSERT_EQ(ubuslib_connect_init(), 0);
    EXPECT_NE(ubuslib_invoke_init(1, own.list(), own.count()), 0);
    EXPECT_FALSE(on_the_bus("own.one"));
    EXPECT_FALSE(on_the_bus("own.three"));
}

TEST_F(BusObjectsTest, ObjectsAreTakenBack)
{
    Broker broker;
    OwnObjects own = {"own.one", "own.two"};
    ASSERT_EQ(offer(own), 0);
    ASSERT_EQ(ubuslib_invoke_exit(1, own.list(), 1), 0);
    EXPECT_FALSE(on_the_bus("own.one"));
    EXPECT_TRUE(on_the_bus("own.two"));
    EXPECT_EQ(ubuslib_invoke_exit(1, own.list(), own.count()), 0) << "one of them is gone already";
    EXPECT_FALSE(on_the_bus("own.two"));
}

TEST_F(BusObjectsTest, ObjectsComeBackAfterTheBrokerWithALogLineEachWay)
{
    Broker broker;
    OwnObjects own = {"own.one", "own.two", "own.gone"};
    ASSERT_EQ(offer(own), 0);
    ASSERT_EQ(ubuslib_invoke_exit(1, own.list() + 2, 1), 0);
    StderrCapture output;
    for (int round = 0; round < 3; ++round) {
        broker.kill();
        broker.start();
        auto begin = Clock::now();
        ASSERT_TRUE(run_until([] { return on_the_bus("own.one") && on_the_bus("own.two"); }))
            << output.text();
        EXPECT_LT(milliseconds_since(begin), 2000);
        EXPECT_EQ(call_from_outside("own.one"), 0);
        EXPECT_FALSE(on_the_bus("own.gone"));
    }
    std::string lost = "warning: bus connection lost, looking for the broker\n";
    std::string back = "notice: bus connection is back, all objects registered\n";
    EXPECT_EQ(output.text(), lost + back + lost + back + lost + back);
    EXPECT_EQ(OwnObjects::served, 3);
}

TEST_F(BusObjectsTest, ALongAbsenceOfTheBrokerIsSurvived)
{
    Broker broker;
    OwnObjects own = {"own.one"};
    ASSERT_EQ(offer(own), 0);
    broker.kill();
    run_until([] { return false; }, 1000);
    EXPECT_NE(ubuslib_invoke_call("own.one", "run", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ECONNREFUSED);
    broker.start();
    EXPECT_TRUE(run_until([] { return on_the_bus("own.one"); }, 3000));
}

TEST_F(BusObjectsTest, AnObjectTakenBackDuringAnAbsenceStaysAway)
{
    Broker broker;
    OwnObjects own = {"own.one", "own.two"};
    ASSERT_EQ(offer(own), 0);
    broker.kill();
    run_until([] { return false; }, 50);
    EXPECT_EQ(ubuslib_invoke_exit(1, own.list(), 1), 0);
    broker.start();
    ASSERT_TRUE(run_until([] { return on_the_bus("own.two"); }));
    EXPECT_FALSE(on_the_bus("own.one"));
}

TEST_F(BusObjectsTest, ANameThatIsStillTakenAfterTheReturnIsTriedAgain)
{
    Broker broker;
    OwnObjects own = {"own.one", "own.two"};
    ASSERT_EQ(offer(own), 0);
    broker.kill();
    broker.start();
    {
        Peer thief("own.two"); // before we are back
        run_until([] { return on_the_bus("own.one"); }, 2000);
    }
    ASSERT_TRUE(run_until([] { return call_from_outside("own.two") == 0; }));
}

// A socket where a broker is expected, whose owner hangs up on everyone.
class NoBroker {
public:
    NoBroker() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/var/run/ubus/ubus.sock");
        unlink(address.sun_path);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_, 16), 0);
        // The attempt blocks while it waits for a greeting, so the answer must come from another process.
        answering_ = fork();
        if (answering_ == 0) {
            answer();
        }
    }
    NoBroker(const NoBroker &) = delete;
    NoBroker &operator=(const NoBroker &) = delete;
    ~NoBroker()
    {
        kill(answering_, SIGKILL);
        close(listener_);
    }
    // When each attempt came, in milliseconds of the monotonic clock.
    static std::vector<long> attempts()
    {
        std::vector<long> times;
        std::string text = file_exists("/tmp/attempts") ? read_file("/tmp/attempts") : "";
        for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
            times.push_back(std::stol(text.substr(at)));
        }
        return times;
    }

private:
    [[noreturn]] void answer() const
    {
        FILE *log = fopen("/tmp/attempts", "we");
        for (;;) {
            int caller = accept(listener_, nullptr, nullptr);
            if (caller < 0) {
                usleep(1000);
                continue;
            }
            fprintf(log, "%ld\n", milliseconds_since(Clock::time_point{}));
            fflush(log);
            close(caller);
        }
    }
    int listener_;
    pid_t answering_ = -1;
};

TEST_F(BusObjectsTest, AttemptsToReturnBackOffFrom100MillisecondsDoublingTo2Seconds)
{
    Broker broker;
    ASSERT_EQ(ubuslib_connect_init(), 0);
    broker.kill();
    NoBroker nobody;
    ASSERT_TRUE(run_until([] { return NoBroker::attempts().size() >= 7; }, 12000));
    std::vector<long> times = NoBroker::attempts();
    long shortest[] = {200, 400, 800, 1600, 2000, 2000};
    for (size_t i = 0; i < 6; ++i) {
        long pause = times[i + 1] - times[i];
        EXPECT_GE(pause, shortest[i] - 5) << i;
        EXPECT_LT(pause, shortest[i] + 1000) << i;
    }
}

} // namespace
