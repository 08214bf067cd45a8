// Five users at once who do what they can to stop the broker, and root, who goes on calling. As long as root
// needs for a number of calls, or for the seconds that BUS_LOAD_SECONDS names.
#include "support.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <random>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace support;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t user_count = 5;
constexpr size_t connections_tried = 40;
constexpr size_t most_kib = 32768;
constexpr int usual_calls = 2000;
const Bytes ping = from_hex("00030001 00000000 00000004");

// The broker lets in only users who have a name.
std::vector<uid_t> some_users()
{
    std::vector<uid_t> users;
    setpwent();
    while (const passwd *entry = getpwent()) {
        if (entry->pw_uid != 0 && users.size() < user_count) {
            users.push_back(entry->pw_uid);
        }
    }
    endpwent();
    return users;
}

Bytes call(uint16_t seq, uint32_t object, size_t size = 0)
{
    return message(UBUS_MSG_INVOKE, seq, object,
                   attr_u32(UBUS_ATTR_OBJID, object) + attr_string(UBUS_ATTR_METHOD, "m") +
                       attr_bytes(UBUS_ATTR_DATA, Bytes(size)));
}

// What root offers: one object that answers, which others may not call, and one without a path, which anybody
// may call, of a client that never reads.
struct Offer {
    uint32_t answering;
    uint32_t deaf;
};

// One user: many connections, each of which does one thing after the other and reads now and then.
class Attacker {
public:
    Attacker(std::string socket, Offer offer, unsigned int seed)
        : socket_(std::move(socket)), offer_(offer), random_(seed), clients_(connections_tried)
    {}
    [[noreturn]] void run()
    {
        for (;;) {
            std::unique_ptr<RawClient> &client = clients_[random_() % clients_.size()];
            try {
                if (!client || random_() % 64 == 0) {
                    client.reset();
                    client = std::make_unique<RawClient>(socket_);
                    fcntl(client->fd(), F_SETFL, O_NONBLOCK);
                }
                step(*client);
            } catch (const std::exception &) {
                client.reset(); // turned away, or cut off
            }
        }
    }

private:
    void step(RawClient &client)
    {
        const auto size = static_cast<size_t>(random_() % 4 ? random_() % 200 : random_() % 1000000);
        const Bytes load = attr_bytes(UBUS_ATTR_DATA, Bytes(size));
        switch (random_() % 10) {
        case 0:
            client.try_send(message(UBUS_MSG_PING, 1, 0, load));
            break;
        case 1:
            client.try_send(message(UBUS_MSG_LOOKUP, 1, 0));
            break;
        case 2: { // a large type
            Bytes member;
            append_u32(member, static_cast<uint32_t>(0x82000000 | (8 + size)));
            client.try_send(message(
                UBUS_MSG_ADD_OBJECT, 1, 0,
                attr_bytes(UBUS_ATTR_SIGNATURE, member + from_hex("00016d00") + Bytes((size + 3) / 4 * 4))));
            break;
        }
        case 3:
            client.try_send(call(2, offer_.answering, size));
            break;
        case 4:
            client.send_with_descriptors(call(3, offer_.deaf, size % 1000), {STDERR_FILENO});
            break;
        case 5: // half a message
            client.try_send(message(UBUS_MSG_PING, 1, 0, load + Bytes(1000000)));
            break;
        case 6:
            subscribe(); // may replace the client
            break;
        case 7:
            notify(load);
            break;
        default: { // reads
            Bytes sink(65536);
            for (int i = 0; i < 16 && recv(client.fd(), sink.data(), sink.size(), 0) > 0; i++) {
            }
        }
        }
    }
    // A connection with an object that is subscribed to the one before, many times, and becomes the next
    // target.
    void subscribe()
    {
        auto fresh = std::make_unique<RawClient>(socket_);
        const uint32_t own = id_in(fresh->ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0));
        for (int i = 0; i < 20 && target_ != 0; i++) {
            fresh->ask(message(UBUS_MSG_SUBSCRIBE, 1, 0,
                               attr_u32(UBUS_ATTR_OBJID, own) + attr_u32(UBUS_ATTR_TARGET, target_)));
        }
        if (target_ == 0 || random_() % 16 == 0) {
            target_ = own;
            owner_ = random_() % clients_.size();
        }
        fcntl(fresh->fd(), F_SETFL, O_NONBLOCK);
        clients_[target_ == own ? owner_ : random_() % clients_.size()] = std::move(fresh);
    }
    void notify(const Bytes &load)
    {
        if (clients_[owner_]) {
            clients_[owner_]->try_send(
                message(UBUS_MSG_NOTIFY, 4, target_,
                        attr_u32(UBUS_ATTR_OBJID, target_) + attr_string(UBUS_ATTR_METHOD, "n") + load));
        }
    }

    std::string socket_;
    Offer offer_;
    std::mt19937 random_;
    std::vector<std::unique_ptr<RawClient>> clients_;
    uint32_t target_ = 0; // an object
    size_t owner_ = 0;    // its client
};

class Load : public ::testing::Test {
protected:
    Load()
    {
        broker.open_to_all();
        const uint32_t deaf_object = id_in(deaf->ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0));
        const Bytes named = attr_string(UBUS_ATTR_OBJPATH, "load") +
                            attr_bytes(UBUS_ATTR_SIGNATURE, from_hex("82000008 00016d00"));
        offer = {id_in(owner.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0, named)).at(0)), deaf_object};
        EXPECT_EQ(caller.ask_status(ping), 0);
        kib = broker.resident_kib();
        descriptors = broker.open_descriptors();
    }
    void attack_as(uid_t user, unsigned int seed)
    {
        attackers.push_back(std::make_unique<Child>(std::function<int()>([this, user, seed] {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (setgroups(0, nullptr) || setgid(user) || setuid(user)) {
                return 1;
            }
            Attacker(broker.socket(), offer, seed).run();
        })));
    }
    // One call of root's to root's object: its status.
    int one_call()
    {
        caller.send(call(7, offer.answering));
        const Bytes request = owner.receive();
        owner.send(message(UBUS_MSG_STATUS, 7, u32_at(request, 4),
                           attr_u32(UBUS_ATTR_STATUS, 0) + attr_u32(UBUS_ATTR_OBJID, offer.answering)));
        return status_of(caller.receive());
    }
    void print_times(std::vector<double> &ms)
    {
        std::sort(ms.begin(), ms.end());
        printf("%zu calls of root: half within %.1f ms, 99 of 100 within %.1f ms, all within %.1f ms; "
               "the broker held at most %zu KiB\n",
               ms.size(), ms[ms.size() / 2], ms[ms.size() * 99 / 100], ms.back(), peak_kib);
    }

    Broker broker;
    std::unique_ptr<RawClient> deaf = std::make_unique<RawClient>(broker.socket());
    RawClient owner{broker.socket()};
    RawClient caller{broker.socket()};
    Offer offer = {};
    std::vector<std::unique_ptr<Child>> attackers;
    size_t kib = 0;
    size_t descriptors = 0;
    size_t peak_kib = 0;
};

TEST_F(Load, FiveUsersAtOnce)
{
    const char *wanted = getenv("BUS_LOAD_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(wanted ? atoi(wanted) : 0);
    unsigned int seed = 1;
    for (uid_t user : some_users()) {
        attack_as(user, seed++);
    }
    ASSERT_EQ(attackers.size(), user_count);
    std::vector<double> ms;
    while (ms.size() < usual_calls || Clock::now() < end) {
        const auto start = Clock::now();
        ASSERT_EQ(one_call(), 0);
        ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        peak_kib = std::max(peak_kib, broker.resident_kib());
    }
    print_times(ms);
    for (auto &attacker : attackers) {
        EXPECT_TRUE(attacker->running());
    }
    attackers.clear();
    deaf.reset(); // with the calls that wait for it
    EXPECT_TRUE(wait_until([this] { return broker.open_descriptors() == descriptors - 1; }))
        << "descriptors left open";
    EXPECT_EQ(one_call(), 0);
#ifndef __SANITIZE_ADDRESS__
    EXPECT_LE(peak_kib, most_kib);
    EXPECT_TRUE(wait_until([this] { return broker.resident_kib() <= kib + 1024; }))
        << broker.resident_kib() << " KiB after " << kib;
    printf("and %zu KiB after them, %zu KiB before\n", broker.resident_kib(), kib);
#endif
    if (wanted) {
        EXPECT_LE(ms[ms.size() * 99 / 100], 100.0);
    }
}

} // namespace
