// What one user other than root may hold of the broker, and that root is served while the budgets are used
// up.
#include "support.h"

#include <csignal>
#include <filesystem>
#include <memory>
#include <unistd.h>

using namespace support;

namespace {

constexpr uid_t nobody = 65534;
constexpr uid_t another = 1; // "daemon"
const Bytes ping = from_hex("00030001 00000000 00000004");

Bytes add_request(const Bytes &content = {})
{
    return message(UBUS_MSG_ADD_OBJECT, 1, 0, content);
}

uint32_t add_object(RawClient &owner)
{
    return id_in(owner.ask(add_request()).at(0));
}

Bytes link_request(int type, uint32_t subscriber, uint32_t target)
{
    return message(type, 2, 0, attr_u32(UBUS_ATTR_OBJID, subscriber) + attr_u32(UBUS_ATTR_TARGET, target));
}

Bytes call(uint16_t seq, uint32_t object, size_t size = 0)
{
    return message(UBUS_MSG_INVOKE, seq, object,
                   attr_u32(UBUS_ATTR_OBJID, object) + attr_string(UBUS_ATTR_METHOD, "m") +
                       attr_bytes(UBUS_ATTR_DATA, Bytes(size)));
}

Bytes notification(uint16_t seq, uint32_t object, size_t size = 0)
{
    return message(UBUS_MSG_NOTIFY, seq, object,
                   attr_u32(UBUS_ATTR_OBJID, object) + attr_string(UBUS_ATTR_METHOD, "n") +
                       attr_bytes(UBUS_ATTR_DATA, Bytes(size)));
}

// One member, "m", as long as wanted.
Bytes signature(size_t size)
{
    Bytes bytes;
    append_u32(bytes, static_cast<uint32_t>(0x82000000 | (12 + size)));
    return attr_bytes(UBUS_ATTR_SIGNATURE, bytes + from_hex("00016d00") + Bytes(size + 4));
}

class Budget : public ::testing::Test {
protected:
    Budget()
    {
        broker.open_to_all();
        EXPECT_EQ(root.ask_status(ping), 0);
        kib = broker.resident_kib();
        descriptors = broker.open_descriptors();
    }
    ~Budget() override
    {
        EXPECT_EQ(root.ask_status(ping), 0);
        EXPECT_TRUE(wait_until([this] { return broker.open_descriptors() == descriptors; }))
            << "descriptors left open";
        expect_memory_within(1024);
        EXPECT_EQ(broker.end(), 0);
    }
    // The sanitizers keep freed memory for a while, and have their own way to find what is lost.
    void expect_memory_within([[maybe_unused]] size_t more_kib)
    {
#ifndef __SANITIZE_ADDRESS__
        EXPECT_TRUE(wait_until([&] { return broker.resident_kib() <= kib + more_kib; }))
            << broker.resident_kib() << " KiB after " << kib;
#endif
    }
    std::unique_ptr<RawClient> join(uid_t user)
    {
        return std::make_unique<RawClient>(broker.socket(), user);
    }
    // As many as are let in of those that try.
    std::vector<std::unique_ptr<RawClient>> join_all(uid_t user, int tries)
    {
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < tries; i++) {
            try {
                clients.push_back(join(user));
            } catch (const std::runtime_error &) {
                // turned away
            }
        }
        return clients;
    }
    Broker broker;
    RawClient root{broker.socket()};
    size_t kib = 0;
    size_t descriptors = 0;
};

TEST_F(Budget, LongSignatures)
{
    auto client = join(nobody);
    int kept = 0;
    for (int i = 0; i < 64; i++) {
        const int status = client->ask_status(add_request(signature(1000000)));
        kept += status == UBUS_STATUS_OK ? 1 : 0;
        ASSERT_TRUE(status == UBUS_STATUS_OK || status == UBUS_STATUS_NO_MEMORY);
    }
    EXPECT_EQ(kept, 2); // the request that is being received takes a part, too
    expect_memory_within(4096);
    EXPECT_EQ(root.ask_status(add_request(signature(1000000))), 0);
}

TEST_F(Budget, TypeOfAUserWhoHasGone)
{
    auto client = join(nobody);
    const uint32_t type = id_in(client->ask(add_request(signature(1000000))).at(0), UBUS_ATTR_OBJTYPE);
    const uint32_t object = id_in(root.ask(add_request(attr_u32(UBUS_ATTR_OBJTYPE, type))).at(0));
    client.reset();
    // It is kept at the cost of the one who brought it.
    auto next = join(nobody);
    EXPECT_EQ(next->ask_status(add_request(signature(1000000))), 0);
    EXPECT_EQ(next->ask_status(add_request(signature(1000000))), UBUS_STATUS_NO_MEMORY);
    ASSERT_EQ(root.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 1, 0, attr_u32(UBUS_ATTR_OBJID, object))), 0);
    EXPECT_EQ(next->ask_status(add_request(signature(1000000))), 0);
}

TEST_F(Budget, ObjectsAndTypes)
{
    auto client = join(nobody);
    for (int i = 0; i < 64; i++) {
        ASSERT_EQ(client->ask_status(add_request(signature(0))), 0);
    }
    EXPECT_EQ(client->ask_status(add_request()), UBUS_STATUS_NO_MEMORY);
    auto other = join(another);
    EXPECT_EQ(other->ask_status(add_request(signature(0))), 0);
    client = nullptr;
    client = join(nobody);
    EXPECT_EQ(client->ask_status(add_request(signature(0))), 0);
}

TEST_F(Budget, SubscriptionsAndOneNotification)
{
    auto owner = join(nobody);
    auto watcher = join(nobody);
    const uint32_t target = add_object(*owner);
    const uint32_t first = add_object(*watcher);
    for (int i = 0; i < 5000; i++) {
        ASSERT_EQ(watcher->ask_status(link_request(UBUS_MSG_SUBSCRIBE, first, target)), 0);
    }
    EXPECT_EQ(owner->receive()[1], UBUS_MSG_NOTIFY); // it has a subscriber
    const auto answers = owner->ask(notification(3, target, 100000));
    EXPECT_EQ(attributes(answers.at(0)).at(UBUS_ATTR_SUBSCRIBERS).size(), 8u);
    EXPECT_EQ(watcher->receive()[1], UBUS_MSG_INVOKE);
    EXPECT_TRUE(watcher->silent(std::chrono::milliseconds(20)));

    std::vector<uint32_t> targets = {target};
    for (int i = 0; i < 8; i++) {
        targets.push_back(add_object(*owner));
    }
    int accepted = 1;
    for (int i = 0; i < 20; i++) {
        const uint32_t subscriber = add_object(*watcher);
        for (uint32_t one : targets) {
            const int status = watcher->ask_status(link_request(UBUS_MSG_SUBSCRIBE, subscriber, one));
            accepted += status == UBUS_STATUS_OK ? 1 : 0;
            ASSERT_TRUE(status == UBUS_STATUS_OK || status == UBUS_STATUS_NO_MEMORY);
        }
    }
    EXPECT_EQ(accepted, 128);
}

TEST_F(Budget, IdleConnections)
{
    auto idle = join_all(nobody, 60);
    EXPECT_EQ(idle.size(), 32u);
    auto others = join_all(another, 60);
    EXPECT_EQ(others.size(), 32u);
    idle.resize(31);
    EXPECT_TRUE(wait_until([&] { return join_all(nobody, 1).size() == 1; }));
    EXPECT_EQ(RawClient(broker.socket()).ask_status(ping), 0);
}

// Whatever their number, users leave descriptors for root.
TEST(BudgetShare, OfFewDescriptors)
{
    Broker broker({}, {"/bin/sh", "-c", "ulimit -n 64; exec \"$@\"", "sh"});
    broker.open_to_all();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 60; i++) {
        try {
            clients.push_back(std::make_unique<RawClient>(broker.socket(), i % 2 ? nobody : another));
        } catch (const std::runtime_error &) {
            // turned away
        }
    }
    EXPECT_EQ(clients.size(), 16u);
    for (int i = 0; i < 20; i++) {
        clients.push_back(std::make_unique<RawClient>(broker.socket()));
        EXPECT_EQ(clients.back()->ask_status(ping), 0);
    }
}

TEST_F(Budget, DescriptorsInAQueue)
{
    auto deaf = join(nobody);
    auto caller = join(nobody);
    const uint32_t object = add_object(*deaf);
    // Fills the socket first, so that all further calls have to wait in the queue.
    for (uint16_t seq = 1; seq <= 5; seq++) {
        caller->send(call(seq, object, 100000));
    }
    ASSERT_EQ(caller->ask_status(ping), 0);
    const size_t before = broker.open_descriptors();
    int refused = 0;
    for (uint16_t seq = 10; seq < 110; seq++) {
        caller->send_with_descriptors(call(seq, object), {STDOUT_FILENO});
        caller->send(message(UBUS_MSG_PING, 9, 0));
        for (Bytes answer = caller->receive(); answer[1] != UBUS_MSG_DATA; answer = caller->receive()) {
            refused += status_of(answer) == UBUS_STATUS_NO_MEMORY ? 1 : 0;
        }
        caller->receive();
    }
    EXPECT_EQ(refused, 84);
    EXPECT_EQ(broker.open_descriptors(), before + 16);
}

// The owner does not read: each call is passed on or answered, and root's calls have room that users leave.
TEST_F(Budget, CallsToAFullQueue)
{
    const uint32_t object = add_object(root);
    auto calls_taken = [&](RawClient &caller) {
        int taken = 0;
        for (uint16_t seq = 1; seq <= 60; seq++) {
            caller.send(call(seq, object, 50000));
            caller.send(message(UBUS_MSG_PING, 1000, 0));
            const Bytes first = caller.receive();
            if (first[1] == UBUS_MSG_DATA) {
                taken++;
            } else {
                EXPECT_EQ(status_of(first), UBUS_STATUS_NO_MEMORY);
                EXPECT_EQ(first[3], seq);
                caller.receive();
            }
            caller.receive();
        }
        return taken;
    };
    auto user = join(nobody);
    const int by_user = calls_taken(*user);
    EXPECT_GE(by_user, 20);
    EXPECT_LE(by_user, 30);
    RawClient caller(broker.socket());
    const int by_root = calls_taken(caller);
    EXPECT_GE(by_root, 20);
    EXPECT_LE(by_root, 25);
    for (int i = 0; i < by_user + by_root; i++) {
        EXPECT_EQ(root.receive()[1], UBUS_MSG_INVOKE);
    }
}

TEST_F(Budget, NotificationToAFullQueueIsAnswered)
{
    RawClient deaf(broker.socket());
    const uint32_t target = add_object(root);
    const uint32_t subscriber = add_object(deaf);
    ASSERT_EQ(deaf.ask_status(link_request(UBUS_MSG_SUBSCRIBE, subscriber, target)), 0);
    root.receive();
    int answered = 0;
    for (int i = 0; i < 20; i++) {
        root.send(notification(4, target, 300000));
        root.receive(); // the list of subscribers
        root.send(message(UBUS_MSG_PING, 5, 0));
        for (Bytes answer = root.receive(); answer[1] != UBUS_MSG_DATA; answer = root.receive()) {
            EXPECT_EQ(status_of(answer), UBUS_STATUS_NO_MEMORY);
            EXPECT_EQ(u32_at(answer, 4), subscriber);
            EXPECT_EQ(id_in(answer), subscriber);
            answered++;
        }
        root.receive();
    }
    EXPECT_GE(answered, 10);
    EXPECT_LT(answered, 19);
}

TEST_F(Budget, BytesThatWait)
{
    auto clients = join_all(nobody, 32);
    const Bytes request = message(UBUS_MSG_PING, 1, 0, attr_bytes(3, Bytes(500000)));
    for (auto &client : clients) {
        for (int i = 0; i < 4; i++) {
            client->try_send(request); // and no answer is read
        }
    }
    EXPECT_EQ(root.ask_status(ping), 0);
    expect_memory_within(6144);
    auto other = join(another);
    EXPECT_EQ(other->ask(message(UBUS_MSG_PING, 1, 0, attr_bytes(3, Bytes(1000000)))).size(), 2u);
}

// Messages that never get their last byte.
TEST_F(Budget, BytesOfUnfinishedMessages)
{
    auto clients = join_all(nobody, 32);
    Bytes part = message(UBUS_MSG_PING, 1, 0, attr_bytes(3, Bytes(1000000)));
    part.pop_back();
    for (auto &client : clients) {
        client->try_send(part);
    }
    EXPECT_EQ(root.ask_status(ping), 0);
    expect_memory_within(6144);
}

// What a user asks for comes in turns with the others, however much it is.
TEST_F(Budget, BacklogOfAUserWhoHasGone)
{
    for (int round = 0; round < 20; round++) {
        auto client = join(nobody);
        Bytes burst;
        for (int i = 0; i < 5000; i++) {
            burst = std::move(burst) + ping;
        }
        client->try_send(burst);
    }
    EXPECT_EQ(root.ask_status(ping), 0);
}

} // namespace
