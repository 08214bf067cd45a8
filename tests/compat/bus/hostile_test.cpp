// Clients that mean no good, or do not read: the broker serves the others, keeps its memory and its
// descriptors.
#include "support.h"

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <random>
#include <sys/resource.h>
#include <sys/socket.h>

using namespace support;

namespace {

const Bytes ping = from_hex("00030001 00000000 00000004");

class Hostile : public ::testing::Test {
protected:
    // A broker takes connections before it has opened everything it needs. Once it has answered, it has; and
    // after the second answer it has seen the end of the connection by which its start was noticed.
    Hostile()
    {
        RawClient client(broker.socket());
        EXPECT_EQ(client.ask_status(ping), 0);
        EXPECT_EQ(client.ask_status(ping), 0);
        base_descriptors = broker.open_descriptors() - 1;
    }
    ~Hostile() override
    {
        EXPECT_TRUE(broker.running());
        EXPECT_TRUE(wait_until([this] { return broker.open_descriptors() <= base_descriptors; }))
            << "descriptors left open";
        EXPECT_EQ(broker.end(), 0);
    }
    void expect_service()
    {
        RawClient client(broker.socket());
        EXPECT_EQ(client.ask_status(ping), 0);
    }
    // The sanitizers keep freed memory for a while, and have their own way to find what is lost.
    void expect_memory([[maybe_unused]] size_t at_most_kib) const
    {
#ifndef __SANITIZE_ADDRESS__
        EXPECT_LE(broker.resident_kib(), at_most_kib);
#endif
    }
    Broker broker;
    size_t base_descriptors = 0;
};

TEST_F(Hostile, ConnectionsThatEndAnywhere)
{
    const Bytes whole = message(UBUS_MSG_LOOKUP, 1, 0, attr_string(UBUS_ATTR_OBJPATH, "some.path"));
    for (size_t len = 0; len < whole.size(); len++) {
        RawClient client(broker.socket(), false);
        client.send(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(len)));
    }
    expect_service();
}

TEST_F(Hostile, NoiseOfEveryKind)
{
    std::mt19937 random(4711);
    for (int round = 0; round < 300; round++) {
        RawClient client(broker.socket(), false);
        Bytes noise;
        // Half of it with a sound frame around, so that it reaches the handlers.
        Bytes content(random() % 200);
        for (uint8_t &byte : content) {
            byte = static_cast<uint8_t>(random() % 4 ? random() % 14 : random());
        }
        noise = round % 2 ? message(static_cast<int>(random() % 14), static_cast<uint16_t>(random()),
                                    static_cast<uint32_t>(random() % 5), content)
                          : content;
        client.try_send(noise);
    }
    expect_service();
}

TEST_F(Hostile, AttributesThatLieAboutTheirLength)
{
    RawClient client(broker.socket());
    const uint32_t lengths[] = {0, 1, 3, 9, 12, 100, 0xffffff};
    uint16_t seq = 1;
    for (int type = UBUS_MSG_PING; type <= UBUS_MSG_NOTIFY; type++) {
        for (uint32_t len : lengths) {
            for (int id = 0; id < UBUS_ATTR_MAX; id++) {
                Bytes content;
                append_u32(content, static_cast<uint32_t>(id) << 24 | len);
                append_u32(content, 1);
                const auto answers = client.ask(message(type, ++seq, 0, content));
                EXPECT_GE(status_of(answers.back()), 0);
            }
        }
    }
}

TEST_F(Hostile, SignaturesAndPatternsThatAreUnsound)
{
    RawClient client(broker.socket());
    std::mt19937 random(99);
    uint16_t seq = 1;
    for (int round = 0; round < 500; round++) {
        Bytes inner(4 * (1 + random() % 10));
        for (uint8_t &byte : inner) {
            byte = static_cast<uint8_t>(random() % 3 ? random() % 20 : random());
        }
        inner[0] |= 0x80;
        inner[1] = inner[2] = 0;
        const Bytes path = attr_string(UBUS_ATTR_OBJPATH, "p" + std::to_string(round));
        client.ask(message(UBUS_MSG_ADD_OBJECT, ++seq, 0, path + attr_bytes(UBUS_ATTR_SIGNATURE, inner)));
        client.ask(message(UBUS_MSG_INVOKE, ++seq, 1,
                           attr_u32(UBUS_ATTR_OBJID, 1) +
                               attr_string(UBUS_ATTR_METHOD, round % 2 ? "register" : "send") +
                               attr_bytes(UBUS_ATTR_DATA, inner)));
    }
    client.ask(message(UBUS_MSG_LOOKUP, ++seq, 0));
}

TEST_F(Hostile, AnnouncedLengthsCostNoMemory)
{
    expect_service();
    const size_t before = broker.resident_kib();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 100; i++) {
        clients.push_back(std::make_unique<RawClient>(broker.socket()));
        clients.back()->send(from_hex("00030001 00000000 00100000 03"));
    }
    expect_service();
    expect_memory(before + 4096);
}

TEST_F(Hostile, LargestMessage)
{
    RawClient client(broker.socket());
    const Bytes largest = message(UBUS_MSG_PING, 5, 0, attr_bytes(3, Bytes(1048576 - 8)));
    const auto answers = client.ask(largest);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(Bytes(answers[0].begin() + 2, answers[0].end()), Bytes(largest.begin() + 2, largest.end()));
}

// It asks and asks and does not read: what does not fit its queue is dropped, and nobody else notices.
TEST_F(Hostile, FloodFromAClientThatDoesNotRead)
{
    RawClient deaf(broker.socket());
    const size_t before = broker.resident_kib();
    const Bytes request = message(UBUS_MSG_PING, 1, 0, attr_bytes(3, Bytes(4088)));
    Bytes burst;
    for (int i = 0; i < 64; i++) {
        burst = burst + request;
    }
    for (int i = 0; i < 64; i++) {
        deaf.send(burst);
        if (i % 16 == 0) {
            expect_service();
        }
    }
    expect_service();
    expect_memory(before + 6 * 1024);
    // What it does get is whole messages.
    for (int i = 0; i < 100; i++) {
        const Bytes answer = deaf.receive();
        EXPECT_TRUE(answer.size() == request.size() || answer.size() == 20u);
    }
}

TEST_F(Hostile, EventsForAListenerThatDoesNotRead)
{
    RawClient deaf(broker.socket());
    const uint32_t receiver =
        u32_at(attributes(deaf.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0)).at(UBUS_ATTR_OBJID), 0);
    Bytes args = from_hex("85000014 00066f62 6a656374 00000000");
    append_u32(args, receiver);
    args = args + from_hex("83000012 00077061 74746572 6e000000 2a000000");
    ASSERT_EQ(
        deaf.ask_status(message(UBUS_MSG_INVOKE, 2, 1,
                                attr_u32(UBUS_ATTR_OBJID, 1) + attr_string(UBUS_ATTR_METHOD, "register") +
                                    attr_bytes(UBUS_ATTR_DATA, args))),
        0);
    const size_t before = broker.resident_kib();
    // id "e", data { a field of 4 kB }
    Bytes field = from_hex("80001008 00016600") + Bytes(4096);
    Bytes table;
    append_u32(table, static_cast<uint32_t>(0x82000000 | (12 + field.size())));
    table = table + from_hex("00046461 74610000") + field;
    table[3] = static_cast<uint8_t>((12 + field.size()) & 0xff);
    const Bytes send =
        message(UBUS_MSG_INVOKE, 3, 1,
                attr_u32(UBUS_ATTR_OBJID, 1) + attr_string(UBUS_ATTR_METHOD, "send") +
                    attr_bytes(UBUS_ATTR_DATA, from_hex("8300000e 00026964 00000000 65000000") + table));
    RawClient sender(broker.socket());
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(sender.ask_status(send), 0);
    }
    expect_memory(before + 4 * 1024);
    EXPECT_EQ(deaf.receive()[1], UBUS_MSG_INVOKE);
}

// Long listings go on as fast as they are read, and end with their status.
TEST_F(Hostile, ListingsForAClientThatReadsLate)
{
    RawClient owner(broker.socket());
    Bytes method = from_hex("82000808 00016d00") + from_hex("80000800 00016100") + Bytes(2040);
    const int objects = 300;
    for (int i = 0; i < objects; i++) {
        ASSERT_EQ(owner.ask_status(message(UBUS_MSG_ADD_OBJECT, static_cast<uint16_t>(i + 1), 0,
                                           attr_string(UBUS_ATTR_OBJPATH, "o" + std::to_string(i)) +
                                               attr_bytes(UBUS_ATTR_SIGNATURE, method))),
                  0);
    }
    RawClient late(broker.socket());
    const int listings = 20;
    for (int i = 0; i < listings; i++) {
        late.send(message(UBUS_MSG_LOOKUP, static_cast<uint16_t>(i + 1), 0));
    }
    expect_service();
    expect_memory(40u * 1024);
    for (int i = 0; i < listings; i++) {
        int found = 0;
        Bytes answer;
        while ((answer = late.receive())[1] == UBUS_MSG_DATA) {
            ASSERT_EQ(answer[3], i + 1);
            found++;
            if (i == 3 && found == 10) {
                expect_service();
            }
        }
        EXPECT_EQ(found, objects);
        EXPECT_EQ(status_of(answer), 0);
    }
}

TEST_F(Hostile, ListingOfAClientThatLeaves)
{
    RawClient owner(broker.socket());
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(owner.ask_status(message(
                      UBUS_MSG_ADD_OBJECT, 1, 0,
                      attr_string(UBUS_ATTR_OBJPATH, "o" + std::to_string(i)) +
                          attr_bytes(UBUS_ATTR_SIGNATURE, from_hex("82000808 00016d00") +
                                                              from_hex("80000800 00016100") + Bytes(2040)))),
                  0);
    }
    {
        RawClient gone(broker.socket());
        for (int i = 0; i < 50; i++) {
            gone.send(message(UBUS_MSG_LOOKUP, 1, 0));
        }
        EXPECT_FALSE(gone.silent());
    }
    expect_service();
}

TEST_F(Hostile, ManyConnections)
{
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 400; i++) {
        clients.push_back(std::make_unique<RawClient>(broker.socket()));
    }
    for (auto &client : clients) {
        EXPECT_EQ(client->ask_status(ping), 0);
    }
}

TEST_F(Hostile, NoDescriptorsLeft)
{
    RawClient early(broker.socket());
    const rlimit few = {32, 32};
    ASSERT_EQ(prlimit(broker.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    std::vector<std::unique_ptr<RawClient>> clients;
    int turned_away = 0;
    for (int i = 0; i < 60; i++) {
        try {
            clients.push_back(std::make_unique<RawClient>(broker.socket()));
        } catch (const std::exception &) {
            turned_away++;
        }
    }
    EXPECT_GT(turned_away, 20);
    EXPECT_GT(clients.size(), 10u);
    EXPECT_EQ(early.ask_status(ping), 0);
    clients.clear();
    EXPECT_TRUE(wait_until([this] { return broker.open_descriptors() <= base_descriptors + 1; }));
    expect_service();
}

TEST_F(Hostile, DescriptorsNobodyAskedFor)
{
    {
        RawClient client(broker.socket());
        for (int type = UBUS_MSG_STATUS; type <= UBUS_MSG_NOTIFY; type++) {
            client.send_with_descriptors(message(type, 1, 0x5555, attr_u32(UBUS_ATTR_OBJID, 0x5555)),
                                         {0, 1, 2});
        }
        client.send(message(UBUS_MSG_PING, 77, 0));
        while (client.receive()[3] != 77) {
        }
        EXPECT_LE(broker.open_descriptors(), base_descriptors + 1);
    }
}

TEST_F(Hostile, OwnerLeavesWithEverythingAttached)
{
    for (int round = 0; round < 20; round++) {
        auto owner = std::make_unique<RawClient>(broker.socket());
        RawClient watcher(broker.socket());
        const auto added =
            owner->ask(message(UBUS_MSG_ADD_OBJECT, 1, 0, attr_string(UBUS_ATTR_OBJPATH, "o")));
        const uint32_t target = u32_at(attributes(added.at(0)).at(UBUS_ATTR_OBJID), 0);
        const uint32_t own =
            u32_at(attributes(watcher.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0)).at(UBUS_ATTR_OBJID), 0);
        ASSERT_EQ(
            watcher.ask_status(message(UBUS_MSG_SUBSCRIBE, 2, 0,
                                       attr_u32(UBUS_ATTR_OBJID, own) + attr_u32(UBUS_ATTR_TARGET, target))),
            0);
        owner.reset();
        const Bytes news = watcher.receive();
        EXPECT_EQ(to_hex(news),
                  to_hex(message(UBUS_MSG_UNSUBSCRIBE, 1, 0,
                                 attr_u32(UBUS_ATTR_OBJID, own) + attr_u32(UBUS_ATTR_TARGET, target))));
    }
}

TEST_F(Hostile, RegistrationsComeAndGoWithoutGrowth)
{
    RawClient client(broker.socket());
    auto add_and_remove = [&client](int rounds) {
        for (int i = 0; i < rounds; i++) {
            const auto added =
                client.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0,
                                   attr_string(UBUS_ATTR_OBJPATH, "o" + std::to_string(i % 7)) +
                                       attr_bytes(UBUS_ATTR_SIGNATURE, from_hex("82000008 00016d00"))));
            const Bytes id = attributes(added.at(0)).at(UBUS_ATTR_OBJID);
            client.ask(message(UBUS_MSG_REMOVE_OBJECT, 2, 0, attr_bytes(UBUS_ATTR_OBJID, id)));
        }
    };
    add_and_remove(200);
    const size_t before = broker.resident_kib();
    add_and_remove(3000);
    expect_memory(before + 256);
}

} // namespace
