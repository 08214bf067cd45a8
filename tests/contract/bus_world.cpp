#include "bus_world.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <libubus.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

std::string peer_file(const std::string &object, const char *what)
{
    return "/tmp/peer-" + object + what;
}

// One of the bus's programs: built beside the test, or installed.
std::string bus_program(const std::string &name)
{
    std::string built = program_folder() + "/" + name;
    if (file_exists(built)) {
        return built;
    }
    return file_exists("/sbin/" + name) ? "/sbin/" + name : "/bin/" + name;
}

bool broker_answers()
{
    ubus_context context = {};
    if (ubus_connect_ctx(&context, nullptr) != 0) {
        return false;
    }
    ubus_shutdown(&context);
    return true;
}

void end(pid_t *pid)
{
    if (*pid > 0) {
        kill(*pid, SIGKILL);
        while (waitpid(*pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        *pid = -1;
    }
}

std::string peer_object;

int on_request(ubus_context *context, ubus_object *, ubus_request_data *request, const char *method,
               blob_attr *message)
{
    char *json = blobmsg_format_json(message, true);
    std::string line = std::string(method) + " " + json + "\n";
    free(json);
    int log = open(peer_file(peer_object, ".log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (write(log, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        abort();
    }
    close(log);
    if (!strcmp(method, "mute")) {
        static ubus_request_data never_ended;
        ubus_defer_request(context, request, &never_ended);
        return 0;
    }
    if (!strcmp(method, "echo")) {
        ubus_send_reply(context, request, message);
    }
    return atoi(read_file(peer_file(peer_object, ".status")).c_str());
}

[[noreturn]] void be_peer(const std::string &object)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    peer_object = object;
    static ubus_method methods[5] = {};
    const char *names[5] = {"add", "delete", "run", "echo", "mute"};
    for (int i = 0; i < 5; ++i) {
        methods[i].name = names[i];
        methods[i].handler = on_request;
    }
    static ubus_object_type type = {};
    type.name = "peer";
    type.methods = methods;
    type.n_methods = 5;
    static ubus_object published = {};
    published.name = peer_object.c_str();
    published.type = &type;
    published.methods = methods;
    published.n_methods = 5;
    uloop_done(); // the loop that was inherited, with all that hangs on it
    ubus_context *context = nullptr;
    while (!context) {
        context = ubus_connect(nullptr);
        usleep(context ? 0 : 10000);
    }
    ubus_add_object(context, &published);
    ubus_add_uloop(context);
    uloop_run();
    _exit(0);
}

} // namespace

Broker::Broker()
{
    start();
}

Broker::~Broker()
{
    kill();
}

void Broker::start()
{
    std::filesystem::create_directories("/var/run/ubus");
    std::string program = bus_program("ubusd");
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execl(program.c_str(), "ubusd", static_cast<char *>(nullptr));
        _exit(127);
    }
    EXPECT_TRUE(wait_for(broker_answers)) << program;
}

void Broker::stand_still()
{
    ::kill(pid_, SIGSTOP);
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, WUNTRACED), pid_);
}

void Broker::go_on()
{
    ::kill(pid_, SIGCONT);
}

void Broker::kill()
{
    end(&pid_);
}

Peer::Peer(const std::string &object, bool on_the_bus) : object_(object)
{
    set_status(0);
    write_file(peer_file(object_, ".log"), "");
    pid_ = fork();
    if (pid_ == 0) {
        be_peer(object_);
    }
    if (on_the_bus) {
        EXPECT_TRUE(wait_for([&] { return objects_on_the_bus().find(object_ + "\n") != std::string::npos; }));
    }
}

Peer::~Peer()
{
    end(&pid_);
}

void Peer::set_status(int status)
{
    write_file(peer_file(object_, ".status"), std::to_string(status));
}

std::vector<std::string> Peer::requests() const
{
    std::vector<std::string> lines;
    std::istringstream text(read_file(peer_file(object_, ".log")));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string objects_on_the_bus()
{
    return run_program({bus_program("ubus"), "list"}).out;
}

bool wait_for(const std::function<bool()> &condition, int milliseconds)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}
