// Several clients of the broker at once, in process: anything in any pieces, floods, clients that do not read
// or go away in the middle. Afterwards the broker answers an honest client, and nothing of the others is
// left.
//
// An input is a list of steps; ids are counted instead of drawn, so that messages can name what is there.
#include "broker.h"

#include "bus_message.h"
#include "input.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using fuzz::promise;

constexpr size_t client_count = 6;
constexpr int longest_session = 200;

uint32_t last_id = 0;
bool drawing = false; // ids, as in earnest

// Whom the access file is about.
uid_t nobody()
{
    const passwd *user = getpwnam("nobody");
    return user != nullptr ? user->pw_uid : 65534;
}

void turn()
{
    uloop_run_timeout(0);
}

class Peer {
public:
    Peer() = default;
    ~Peer() { leave(); }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // One too many of a user stays outside.
    void join(bool as_root)
    {
        broker::user_account *account;
        leave();
        if (!broker::account_join(as_root ? 0 : nobody(), &account)) {
            return;
        }
        int ends[2];
        promise(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
                "there are sockets");
        broker::peer_identity identity = {};
        identity.uid = as_root ? 0 : nobody();
        identity.gid = identity.uid;
        identity.user = broker::copy_text(as_root ? "root" : "nobody");
        identity.group = broker::copy_text(as_root ? "root" : "nobody");
        fd_ = ends[0];
        promise(broker::client_new(ends[1], identity, account) != nullptr, "there is memory");
    }
    void leave()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = -1;
    }
    // As much as the socket takes; a descriptor may go along.
    void send(std::string_view bytes, bool with_descriptor = false) const
    {
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        iovec part = {const_cast<char *>(bytes.data()), bytes.size()};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (with_descriptor) {
            const int descriptor = STDOUT_FILENO;
            message.msg_control = control;
            message.msg_controllen = sizeof(control);
            cmsghdr *header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(sizeof(int));
            memcpy(CMSG_DATA(header), &descriptor, sizeof(descriptor));
        }
        if (fd_ >= 0 && !bytes.empty()) {
            sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        }
    }
    std::string read(size_t most) const
    {
        std::string bytes(most, '\0');
        const ssize_t got = fd_ >= 0 ? recv(fd_, bytes.data(), most, MSG_DONTWAIT) : 0;
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }

private:
    int fd_ = -1;
};

class Session {
public:
    void step(fuzz::Input &input);
    int joined() const { return joined_; }

private:
    int joined_ = 0;
    std::array<Peer, client_count> peers_;
    std::string last_;
};

void Session::step(fuzz::Input &input)
{
    const uint8_t what = input.u8();
    Peer &peer = peers_[input.u8() % client_count];
    switch (what % 8) {
    case 0:
        peer.join(what < 0x80);
        joined_++;
        break;
    case 1:
        peer.leave();
        break;
    case 2:
        peer.send(input.bytes(input.u8()));
        break;
    case 3: // in two pieces
        last_ = fuzz::take_bus_message(input);
        peer.send(std::string_view{last_}.substr(0, last_.size() / 2));
        turn();
        peer.send(std::string_view{last_}.substr(last_.size() / 2));
        break;
    case 4: // a flood
        for (int count = input.u8(); count > 0; count--) {
            peer.send(last_);
        }
        break;
    case 5:
        peer.read(input.u16());
        break;
    default:
        last_ = fuzz::take_bus_message(input);
        peer.send(last_, (what & 0x40) != 0);
    }
    turn();
}

// The broker may owe turns to messages that are waiting still, also those of clients that have gone; but to
// each client no second one before the honest one has had its own.
void check_service(int joined)
{
    // Answers can be sent to any client whose id is known; this one's is not.
    Peer honest;
    drawing = true;
    honest.join(true);
    drawing = false;
    honest.send(fuzz::bus_message(UBUS_MSG_PING, 0x1234, 0, {}));
    std::string answer;
    const size_t wanted = 12 + 12 + 20; // greeting, data, status
    for (int turns = 0; turns < 64 + 4 * joined && answer.size() < wanted; turns++) {
        turn();
        answer += honest.read(4096);
    }
    promise(answer.size() >= wanted, "an honest client is answered");
    promise(answer[1] == UBUS_MSG_HELLO && answer[13] == UBUS_MSG_DATA && answer[25] == UBUS_MSG_STATUS,
            "a ping is answered by data and status");
}

// A user whose clients have gone may have everything again.
void check_budgets()
{
    constexpr broker::resource_cost first = {.connections = 1};
    constexpr broker::resource_cost rest = {.connections = 31,
                                            .descriptors = 16,
                                            .bytes = 3 << 20,
                                            .objects = 64,
                                            .types = 64,
                                            .subscriptions = 128};
    broker::user_account *account;
    promise(broker::account_join(nobody(), &account), "nothing stays charged: connections");
    promise(broker::charge(account, rest), "nothing stays charged");
    broker::discharge(account, rest);
    broker::discharge(account, first);
}

void prepare_once()
{
    static const bool done = [] {
        promise(uloop_init() == 0, "the event loop starts");
        std::string folder = (std::filesystem::temp_directory_path() / "fuzz-broker-XXXXXX").string();
        promise(mkdtemp(folder.data()) != nullptr, "there is a temporary folder");
        const std::string file = folder + "/user.json";
        std::ofstream(file)
            << R"({"user": "nobody", "access": {"ivarode.*": {"methods": ["add", "*"]}},)"
               R"( "publish": ["ivarode*"], "subscribe": ["*"], "listen": ["*"], "send": ["*"]})";
        broker::acl_load(folder.c_str());
        std::filesystem::remove_all(folder);
        return true;
    }();
    promise(done, "prepared once");
}

} // namespace

extern "C" {

ssize_t __real_getrandom(void *bytes, size_t size, unsigned int flags);

// Every id is a new one; the numbers of an input do not depend on the input before.
ssize_t __wrap_getrandom(void *bytes, size_t size, unsigned int flags)
{
    if (drawing) {
        return __real_getrandom(bytes, size, flags);
    }
    const uint32_t id = last_id++;
    promise(size == sizeof(id), "ids are words");
    memcpy(bytes, &id, sizeof(id));
    return static_cast<ssize_t>(size);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare_once();
    fuzz::Input input(data, size);
    last_id = fuzz::first_id;
    {
        Session session;
        for (int steps = 0; steps < longest_session && !input.empty(); steps++) {
            session.step(input);
        }
        check_service(session.joined());
    }
    for (int turns = 0; turns < 4; turns++) {
        turn();
    }
    broker::clients_free_all();
    promise(broker::object_first_path() == nullptr, "no object outlives its client");
    check_budgets();
    return 0;
}

} // extern "C"
