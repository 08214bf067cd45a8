// The broker, in a process of its own that is watched while clients talk to it: whatever fails, it lives, and
// it serves the next clients as if nothing had been.
// The standard library first: the bus headers define macros that it uses as names.
// clang-format off
#include "sandbox.h"
#include "broker.h"
// clang-format on
#include "bus_world.h"
#include "conversation.h"
#include "server.h"
#include "sweep.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#undef fallthrough

namespace {

constexpr const char *socket_path = "/var/run/ubus/ubus.sock";
constexpr const char *access_folder = "/tmp/acl.d";

void write_access_file()
{
    write_file(std::string(access_folder) + "/nobody.json",
               R"({"user":"nobody","access":{"ivarode*":{"methods":["get"],"acl":{"x":1}}},)"
               R"("publish":["a"],"subscribe":["b"],"listen":["c"],"send":["d"]})");
}

// Users and groups are looked up by the C library, which keeps what it has read of its own configuration, and
// not always in the same blocks after a refusal.
void spare_name_service()
{
    seam::spare("/libc.so");
}

[[noreturn]] void be_broker()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (uloop_init() != 0 || broker::server_open(UBUS_UNIX_SOCKET) != 0) {
        _exit(1);
    }
    broker::acl_load(access_folder);
    uloop_run();
    _exit(0);
}

size_t descriptors_of(pid_t process)
{
    std::error_code gone;
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd", gone)) {
        count++;
    }
    return count;
}

// A client that is left without an answer is ended: to wait is its own affair.
int client()
{
    pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(converse() == 0 ? 0 : 1);
    }
    int status = 0;
    bool ended = wait_for([&] { return waitpid(child, &status, WNOHANG) == child; }, 700);
    if (!ended) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int patient_client()
{
    pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(converse() == 0 ? 0 : 1);
    }
    int status = 1;
    return wait_for([&] { return waitpid(child, &status, WNOHANG) == child; }, 10000) && status == 0 ? 0 : 1;
}

class FaultyBroker : public SandboxTest {
protected:
    void start()
    {
        std::filesystem::create_directories("/var/run/ubus");
        write_access_file();
        seam::prepare();
        spare_name_service();
        process_ = fork();
        if (process_ == 0) {
            be_broker();
        }
        ASSERT_TRUE(wait_for([] { return converse() == 0; }));
        ASSERT_TRUE(wait_for([&] { return settled(0); }));
        descriptors_ = descriptors_of(process_);
    }
    void TearDown() override
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }
    // Nothing but the broker's own is open: all clients have been forgotten.
    bool settled(size_t descriptors)
    {
        size_t open = descriptors_of(process_);
        bool same = descriptors == 0 ? open == last_ : open == descriptors;
        last_ = open;
        return same;
    }
    bool lives() { return waitpid(process_, nullptr, WNOHANG) == 0; }

    pid_t process_ = -1;
    size_t descriptors_ = 0;
    size_t last_ = 0;
};

TEST_F(FaultyBroker, ServesTheNextClients)
{
    start();
    seam::count_calls(process_);
    ASSERT_EQ(patient_client(), 0);
    ASSERT_TRUE(wait_for([&] { return settled(descriptors_); }));
    seam::disarm();
    std::map<std::string, unsigned> usual;
    for (const seam::Fault &fault : seam::faults()) {
        usual[fault.call] = seam::calls(fault.call);
    }
    long blocks = seam::blocks();
    unsigned injections = 0;
    for (const seam::Fault &fault : seam::faults()) {
        for (unsigned occurrence = 1; occurrence <= usual[fault.call]; occurrence++) {
            SCOPED_TRACE("the broker, " + seam::describe(fault, occurrence));
            seam::fail(process_, fault, occurrence);
            int result = client();
            if (fault.harmless && seam::happened()) {
                EXPECT_EQ(result, 0) << "the client notices";
            }
            ASSERT_TRUE(lives());
            EXPECT_TRUE(wait_for([&] { return settled(descriptors_); }))
                << "a client's connection stays open";
            EXPECT_LE(seam::blocks(), blocks) << "blocks of memory left";
            seam::disarm();
            injections += seam::happened() ? 1 : 0;
            ASSERT_EQ(patient_client(), 0) << "the next client is not served";
            EXPECT_TRUE(wait_for([&] { return settled(descriptors_); }));
        }
    }
    printf("the broker with its clients injections: %u\n", injections);
    EXPECT_GT(injections, 50U);
}

// Whether the user of the access file may listen to what it grants.
bool grants_are_known()
{
    broker::bus_client nobody = {};
    nobody.identity.uid = 65534;
    return broker::acl_allows(&nobody, broker::access_kind::listen, "c", nullptr);
}

class BrokerStart : public SandboxTest {};

TEST_F(BrokerStart, OpensAndCloses)
{
    std::filesystem::create_directories("/var/run/ubus");
    write_access_file();
    seam::prepare();
    spare_name_service();
    // An access file that cannot be read costs its users their rights, which counts as a failure here.
    sweep({.name = "start and end of the broker",
           .prepare = [] { unlink(socket_path); },
           .run =
               [] {
                   if (uloop_init() != 0) {
                       return -1;
                   }
                   int result = broker::server_open(UBUS_UNIX_SOCKET);
                   if (result == 0) {
                       broker::acl_load(access_folder);
                       result = grants_are_known() ? 0 : -1;
                       broker::acl_free();
                       broker::server_close();
                   }
                   uloop_done();
                   return result;
               },
           .state = [] { return std::string(file_exists(socket_path) ? "socket left" : "no socket"); },
           .reports = false,
           // A socket file that a broker could not remove, or not know for its own, is replaced by the next
           // one.
           .excepted =
               [](const seam::Fault &fault) {
                   return !strcmp(fault.call, "unlink") || !strcmp(fault.call, "lstat");
               }});
}

} // namespace
