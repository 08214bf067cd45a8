#include "bus_world.h"
#include "platform/bus.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <libubus.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

using Clock = std::chrono::steady_clock;

long milliseconds_since(Clock::time_point begin)
{
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
}

TEST_F(BusTest, WaitingEndsOnceTheObjectAnswersRun)
{
    Broker broker;
    Peer sibling("ombrine.run");
    auto begin = Clock::now();
    EXPECT_EQ(ubuslib_task_status_wait("ombrine.run", 30), 0);
    EXPECT_LT(milliseconds_since(begin), 3000);
    EXPECT_EQ(sibling.requests(), std::vector<std::string>{"run {}"});
}

TEST_F(BusTest, WaitingGoesOnUntilTheObjectAppears)
{
    Broker broker;
    Peer sibling("ombrine.run", false); // its process is only being started
    EXPECT_EQ(ubuslib_task_status_wait("ombrine.run", 30), 0);
}

TEST_F(BusTest, WaitingIsForStatusZero)
{
    Broker broker;
    Peer sibling("ombrine.run");
    sibling.set_status(9);
    pid_t later = fork();
    if (later == 0) {
        bool asked_twice = wait_for([&] { return sibling.requests().size() >= 2; });
        sibling.set_status(0);
        _exit(asked_twice ? 0 : 1);
    }
    EXPECT_EQ(ubuslib_task_status_wait("ombrine.run", 30), 0);
    EXPECT_GE(sibling.requests().size(), 3U);
}

TEST_F(BusTest, WaitingAsksEvery200MillisecondsAndGivesUpAfterTheSeconds)
{
    Broker broker;
    Peer sibling("ombrine.run");
    sibling.set_status(9);
    auto begin = Clock::now();
    EXPECT_NE(ubuslib_task_status_wait("ombrine.run", 1), 0);
    EXPECT_GE(milliseconds_since(begin), 799) << "the last question is asked at 0.8 s";
    EXPECT_LE(sibling.requests().size(), 5U);
    EXPECT_GE(sibling.requests().size(), 2U);
    EXPECT_NE(ubuslib_task_status_wait("nosuch.run", 1), 0);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(BusTest, WaitingSurvivesABrokerThatComesLate)
{
    pid_t later = fork();
    if (later == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        Broker broker;
        Peer sibling("ombrine.run");
        for (;;) {
            pause(); // the answer must not be lost with the broker
        }
    }
    EXPECT_EQ(ubuslib_task_status_wait("ombrine.run", 20), 0);
    kill(later, SIGKILL);
    waitpid(later, nullptr, 0);
}

TEST_F(BusTest, WaitingForNothingIsAnError)
{
    Broker broker;
    EXPECT_NE(ubuslib_task_status_wait(nullptr, 1), 0);
    EXPECT_NE(ubuslib_task_status_wait("", 1), 0);
    EXPECT_NE(ubuslib_task_status_wait("x", -1), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(BusTest, ACallUsesAConnectionOfItsOwn)
{
    Broker broker;
    Peer other("dnsmasq.dhcp");
    EXPECT_EQ(ubuslib_invoke_call("dnsmasq.dhcp", "add", nullptr, nullptr, nullptr), 0)
        << "none was opened before";
    EXPECT_EQ(other.requests(), std::vector<std::string>{"add {}"});
}

TEST_F(BusTest, ACallDeliversItsMessageAndTheReply)
{
    Broker broker;
    Peer other("other");
    blob_buf message = {};
    blob_buf_init(&message, 0);
    blobmsg_add_string(&message, "pool", "lan1");
    blobmsg_add_u32(&message, "start", 100);
    std::string answer;
    auto reply = [](ubus_request *request, int, blob_attr *data) {
        char *json = blobmsg_format_json(data, true);
        *static_cast<std::string *>(request->priv) = json;
        free(json);
    };
    EXPECT_EQ(ubuslib_invoke_call("other", "echo", &message, reply, &answer), 0);
    blob_buf_free(&message);
    EXPECT_EQ(answer, R"({"pool":"lan1","start":100})");
    EXPECT_EQ(other.requests(), std::vector<std::string>{R"(echo {"pool":"lan1","start":100})"});
}

TEST_F(BusTest, AFailedCallIsAnError)
{
    Broker broker;
    Peer other("other");
    other.set_status(9);
    StderrCapture output;
    EXPECT_NE(ubuslib_invoke_call("other", "run", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(output.text(),
              "debug: ubuslib_invoke_call(other, run [bus: Unknown error]): Input/output error\n");
    EXPECT_NE(ubuslib_invoke_call("other", "nosuch", nullptr, nullptr, nullptr), 0);
    EXPECT_NE(ubuslib_invoke_call("nosuch", "run", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(ubuslib_invoke_call(nullptr, "run", nullptr, nullptr, nullptr), 0);
    EXPECT_NE(ubuslib_invoke_call("other", nullptr, nullptr, nullptr, nullptr), 0);
}

TEST_F(BusTest, ACallEndsAfterThreeSeconds)
{
    Broker broker;
    Peer other("other");
    auto begin = Clock::now();
    EXPECT_NE(ubuslib_invoke_call("other", "mute", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(milliseconds_since(begin), 2990);
    EXPECT_LT(milliseconds_since(begin), 6000);
}

// The bus library itself may wait for the greeting, and for the look-up, without end.
TEST_F(BusTest, ACallToABrokerThatStandsStillEndsToo)
{
    Broker broker;
    Peer other("other");
    ASSERT_EQ(ubuslib_connect_init(), 0);
    broker.stand_still();
    auto begin = Clock::now();
    EXPECT_NE(ubuslib_invoke_call("other", "run", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(milliseconds_since(begin), 2990);
    broker.go_on();
    EXPECT_EQ(ubuslib_invoke_call("other", "run", nullptr, nullptr, nullptr), 0);
}

// Its queue of those who connect is full then.
TEST_F(BusTest, ACallToABrokerThatHasStoodStillForLongEndsAtOnce)
{
    Broker broker;
    ASSERT_EQ(ubuslib_connect_init(), 0);
    broker.stand_still();
    sockaddr_un place = {};
    place.sun_family = AF_UNIX;
    strcpy(place.sun_path, UBUS_UNIX_SOCKET);
    std::vector<int> waiting;
    int result = 0;
    while (result == 0 && waiting.size() < 5000) {
        waiting.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        result = connect(waiting.back(), reinterpret_cast<sockaddr *>(&place), sizeof(place));
    }
    ASSERT_EQ(errno, EAGAIN);
    EXPECT_NE(ubuslib_invoke_call("other", "run", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
    for (int fd : waiting) {
        close(fd);
    }
}

// An attribute "list" made from JSON.
class Parsed {
public:
    explicit Parsed(const char *json)
    {
        blob_buf_init(&buffer_, 0);
        EXPECT_TRUE(blobmsg_add_json_from_string(&buffer_, json));
    }
    Parsed(const Parsed &) = delete;
    Parsed &operator=(const Parsed &) = delete;
    ~Parsed() { blob_buf_free(&buffer_); }
    blob_attr *list() { return static_cast<blob_attr *>(blob_data(buffer_.head)); }

private:
    blob_buf buffer_ = {};
};

TEST(StringList, IsFilledInOrder)
{
    Parsed message(R"({"list":["one","two",""]})");
    char *out[4] = {};
    ASSERT_EQ(ubuslib_bmsg_strlist_get(message.list(), out, 4), 0);
    EXPECT_STREQ(out[0], "one");
    EXPECT_STREQ(out[1], "two");
    EXPECT_STREQ(out[2], "");
    EXPECT_EQ(out[3], nullptr) << "what is not filled is left as it was";
}

TEST(StringList, ExtraElementsAreIgnored)
{
    Parsed message(R"({"list":["one","two","three",4]})");
    char *out[3] = {};
    char sentinel[] = "sentinel";
    out[2] = sentinel;
    ASSERT_EQ(ubuslib_bmsg_strlist_get(message.list(), out, 2), 0);
    EXPECT_STREQ(out[1], "two");
    EXPECT_EQ(out[2], sentinel);
}

TEST(StringList, AnEmptyListIsFine)
{
    Parsed message(R"({"list":[]})");
    char *out[1] = {};
    EXPECT_EQ(ubuslib_bmsg_strlist_get(message.list(), out, 1), 0);
    EXPECT_EQ(out[0], nullptr);
}

TEST(StringList, ANullAttributeFails)
{
    char *out[1] = {};
    EXPECT_NE(ubuslib_bmsg_strlist_get(nullptr, out, 1), 0);
    Parsed message(R"({"list":["one"]})");
    EXPECT_NE(ubuslib_bmsg_strlist_get(message.list(), nullptr, 1), 0);
    EXPECT_NE(ubuslib_bmsg_strlist_get(message.list(), out, -1), 0);
}

TEST(StringList, WhatIsNotAStringOrNotAListFails)
{
    char *out[4] = {};
    for (const char *json : {R"({"list":["one",2]})", R"({"list":[true]})", R"({"list":[["one"]]})",
                             R"({"list":[null]})", R"({"list":"one"})", R"({"list":{"a":"one"}})"}) {
        Parsed message(json);
        EXPECT_NE(ubuslib_bmsg_strlist_get(message.list(), out, 4), 0) << json;
        EXPECT_EQ(errno, EINVAL) << json;
    }
}

TEST(StringList, AStringWithoutItsEndFails)
{
    Parsed message(R"({"list":["one","two"]})");
    auto *bytes = reinterpret_cast<char *>(message.list());
    size_t length = blob_raw_len(message.list());
    bytes[length - 1] = 'x'; // the terminator of "two" ...
    for (size_t i = length; bytes[i - 1] != 'o'; --i) {
        bytes[i - 1] = 'x'; // ... and its padding
    }
    char *out[4] = {};
    EXPECT_NE(ubuslib_bmsg_strlist_get(message.list(), out, 4), 0);
}

} // namespace
