// Single requests to the broker, byte by byte.
#include "support.h"

using namespace support;

namespace {

class Probe : public ::testing::Test {
protected:
    Broker broker;
    RawClient client{broker.socket()};

    std::string status_message(const std::string &seq_and_peer, int status)
    {
        Bytes bytes = from_hex("0001" + seq_and_peer + "0000000c 01000008");
        append_u32(bytes, static_cast<uint32_t>(status));
        return to_hex(bytes);
    }
    std::string exchange(const std::string &request)
    {
        client.send(from_hex(request));
        return to_hex(client.receive());
    }
};

TEST_F(Probe, HelloIsTwelveBytes)
{
    RawClient fresh(broker.socket(), false);
    const Bytes hello = fresh.read_exactly(12);
    EXPECT_EQ(u32_at(hello, 0), 0u);
    EXPECT_GE(u32_at(hello, 4), 1024u);
    EXPECT_EQ(u32_at(hello, 8), 4u);
    EXPECT_TRUE(fresh.silent());
}

TEST_F(Probe, PingComesBackAsDataThenStatus)
{
    EXPECT_EQ(exchange("00030007 00001234 00000004"), "00020007 00001234 00000004");
    EXPECT_EQ(to_hex(client.receive()), "00010007 00001234 0000000c 01000008 00000000");
}

TEST_F(Probe, PingKeepsItsBody)
{
    EXPECT_EQ(exchange("00030008 00000000 0000000c 03000008 00000005"),
              "00020008 00000000 0000000c 03000008 00000005");
    EXPECT_EQ(to_hex(client.receive()), status_message("0008 00000000", 0));
}

TEST_F(Probe, PingEchoesTheVersion)
{
    EXPECT_EQ(exchange("07030009 00000000 00000004"), "07020009 00000000 00000004");
    EXPECT_EQ(to_hex(client.receive()), status_message("0009 00000000", 0));
}

TEST_F(Probe, PingOfUnalignedLengthIsEchoedExactly)
{
    client.send(from_hex("0003000a 00000000 00000006 abcd"));
    EXPECT_EQ(to_hex(client.read_exactly(14)), "0002000a 00000000 00000006 abcd");
    EXPECT_EQ(to_hex(client.receive()), status_message("000a 00000000", 0));
}

TEST_F(Probe, ThreePingsInOnePieceAndAHalf)
{
    client.send(from_hex("00030001 00000000 00000004 00030002 00000000 00000004 00030003 0000"));
    for (int seq = 1; seq <= 2; seq++) {
        EXPECT_EQ(client.receive()[3], seq);
        EXPECT_EQ(client.receive()[3], seq);
    }
    EXPECT_TRUE(client.silent());
    client.send(from_hex("0000 00000004"));
    EXPECT_EQ(to_hex(client.receive()), "00020003 00000000 00000004");
    EXPECT_EQ(to_hex(client.receive()), status_message("0003 00000000", 0));
}

TEST_F(Probe, TypesThatAreNotForClients)
{
    EXPECT_EQ(exchange("00000009 00000000 00000004"), status_message("0009 00000000", 1));
    EXPECT_EQ(exchange("000b000a 00000000 00000004"), status_message("000a 00000000", 1));
    EXPECT_EQ(exchange("000c000b 00000000 00000004"), status_message("000b 00000000", 1));
    EXPECT_EQ(exchange("0063000b 00000077 00000004"), status_message("000b 00000077", 1));
}

TEST_F(Probe, InvokeOfNobody)
{
    EXPECT_EQ(
        to_hex(client
                   .ask(message(UBUS_MSG_INVOKE, 12, 0x55555555,
                                attr_u32(UBUS_ATTR_OBJID, 0x55555555) + attr_string(UBUS_ATTR_METHOD, "m") +
                                    attr_bytes(UBUS_ATTR_DATA, {})))
                   .at(0)),
        "0001000c 55555555 0000000c 01000008 00000004");
    EXPECT_EQ(exchange("0005000d 00000000 00000004"), status_message("000d 00000000", 2));
}

TEST_F(Probe, LookupPaths)
{
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_LOOKUP, 1, 0, attr_string(UBUS_ATTR_OBJPATH, ""))), 2);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_LOOKUP, 2, 0, attr_string(UBUS_ATTR_OBJPATH, "none"))), 4);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_LOOKUP, 3, 0, attr_string(UBUS_ATTR_OBJPATH, "none*"))), 4);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_LOOKUP, 4, 0)), 0);
}

Bytes add_request(uint16_t seq, const std::string &path, const Bytes &signature)
{
    return message(UBUS_MSG_ADD_OBJECT, seq, 0,
                   attr_string(UBUS_ATTR_OBJPATH, path) + attr_bytes(UBUS_ATTR_SIGNATURE, signature));
}

// The method table "m" without arguments.
const Bytes method_m = from_hex("82000008 00016d00");

TEST_F(Probe, UnterminatedPathMeansAll)
{
    ASSERT_EQ(client.ask_status(add_request(1, "a.b", method_m)), 0);
    const auto answers =
        client.ask(message(UBUS_MSG_LOOKUP, 2, 0, attr_bytes(UBUS_ATTR_OBJPATH, {'a', 'b'})));
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(attributes(answers[0])[UBUS_ATTR_OBJPATH], (Bytes{'a', '.', 'b', 0}));
    EXPECT_EQ(status_of(answers[1]), 0);
}

TEST_F(Probe, ListingIsInOrderAndByPrefix)
{
    uint16_t seq = 0;
    for (const char *path : {"z", "b.2", "b.10", "a", "b", "c"}) {
        ASSERT_EQ(client.ask_status(add_request(++seq, path, method_m)), 0);
    }
    auto paths = [&](const Bytes &request) {
        std::string text;
        for (const Bytes &answer : client.ask(request)) {
            if (answer[1] == UBUS_MSG_DATA) {
                const Bytes path = attributes(answer)[UBUS_ATTR_OBJPATH];
                text += std::string(path.begin(), path.end() - 1) + " ";
            }
        }
        return text;
    };
    EXPECT_EQ(paths(message(UBUS_MSG_LOOKUP, 20, 0)), "a b b.10 b.2 c z ");
    EXPECT_EQ(paths(message(UBUS_MSG_LOOKUP, 21, 0, attr_string(UBUS_ATTR_OBJPATH, "b*"))), "b b.10 b.2 ");
    EXPECT_EQ(paths(message(UBUS_MSG_LOOKUP, 22, 0, attr_string(UBUS_ATTR_OBJPATH, "b.*"))), "b.10 b.2 ");
    EXPECT_EQ(paths(message(UBUS_MSG_LOOKUP, 23, 0, attr_string(UBUS_ATTR_OBJPATH, "*"))),
              "a b b.10 b.2 c z ");
}

TEST_F(Probe, RemoveObject)
{
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 1, 0)), 2);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 2, 0, attr_u32(UBUS_ATTR_OBJID, 1))), 6);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 3, 0, attr_u32(UBUS_ATTR_OBJID, 0x4444))), 4);
    const auto added = client.ask(add_request(4, "mine", method_m));
    const uint32_t id = u32_at(attributes(added.at(0))[UBUS_ATTR_OBJID], 0);
    RawClient other(broker.socket());
    EXPECT_EQ(other.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 1, 0, attr_u32(UBUS_ATTR_OBJID, id))), 6);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 5, 0, attr_u32(UBUS_ATTR_OBJID, id))), 0);
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_REMOVE_OBJECT, 6, 0, attr_u32(UBUS_ATTR_OBJID, id))), 4);
}

TEST_F(Probe, ObjectsWithoutASoundSignatureExistUnseen)
{
    const auto without = client.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0, attr_string(UBUS_ATTR_OBJPATH, "x")));
    ASSERT_EQ(without.size(), 2u);
    EXPECT_TRUE(attributes(without[0]).contains(UBUS_ATTR_OBJID));
    // A member without a name.
    const auto unsound = client.ask(add_request(2, "y", from_hex("82000008 00000000")));
    ASSERT_EQ(unsound.size(), 2u);
    EXPECT_FALSE(attributes(unsound[0]).contains(UBUS_ATTR_OBJTYPE));
    EXPECT_EQ(status_of(unsound[1]), 0);
    EXPECT_EQ(client.ask(message(UBUS_MSG_LOOKUP, 3, 0)).size(), 1u);
    // Their paths are taken all the same.
    EXPECT_EQ(client.ask_status(add_request(4, "x", method_m)), 2);
}

TEST_F(Probe, TakenPathIsAnInvalidArgumentWithoutData)
{
    ASSERT_EQ(client.ask_status(add_request(1, "x", method_m)), 0);
    RawClient other(broker.socket());
    const auto answers = other.ask(add_request(1, "x", method_m));
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(status_of(answers[0]), 2);
}

TEST_F(Probe, TypeIsSharedAndToldWhenItsLastUserGoes)
{
    const auto first = attributes(client.ask(add_request(1, "p", method_m)).at(0));
    const uint32_t type = u32_at(first.at(UBUS_ATTR_OBJTYPE), 0);
    const auto second =
        attributes(client
                       .ask(message(UBUS_MSG_ADD_OBJECT, 2, 0,
                                    attr_string(UBUS_ATTR_OBJPATH, "q") + attr_u32(UBUS_ATTR_OBJTYPE, type)))
                       .at(0));
    EXPECT_FALSE(second.contains(UBUS_ATTR_OBJTYPE));
    EXPECT_EQ(client.ask(message(UBUS_MSG_LOOKUP, 3, 0)).size(), 3u);
    const auto gone = attributes(client
                                     .ask(message(UBUS_MSG_REMOVE_OBJECT, 4, 0,
                                                  attr_bytes(UBUS_ATTR_OBJID, first.at(UBUS_ATTR_OBJID))))
                                     .at(0));
    EXPECT_FALSE(gone.contains(UBUS_ATTR_OBJTYPE));
    const auto last = attributes(client
                                     .ask(message(UBUS_MSG_REMOVE_OBJECT, 5, 0,
                                                  attr_bytes(UBUS_ATTR_OBJID, second.at(UBUS_ATTR_OBJID))))
                                     .at(0));
    EXPECT_EQ(u32_at(last.at(UBUS_ATTR_OBJTYPE), 0), type);
}

Bytes call(uint16_t seq, uint32_t object, const std::string &method, const Bytes &data = {})
{
    return message(UBUS_MSG_INVOKE, seq, object,
                   attr_u32(UBUS_ATTR_OBJID, object) + attr_string(UBUS_ATTR_METHOD, method) +
                       attr_bytes(UBUS_ATTR_DATA, data));
}

TEST_F(Probe, OwnObjectsOfTheBroker)
{
    EXPECT_EQ(to_hex(client.ask(call(1, 1, "foo")).at(0)), status_message("0001 00000001", 1));
    const auto answers = client.ask(call(2, 2, "query"));
    ASSERT_EQ(answers.size(), 2u);
    const auto data = attributes(answers[0]);
    EXPECT_EQ(u32_at(data.at(UBUS_ATTR_OBJID), 0), 2u);
    // INT32 seq, ARRAY acl without members; the sequence counts later readings of the access files.
    EXPECT_EQ(to_hex(data.at(UBUS_ATTR_DATA)),
              "85000010 00037365 71000000 00000000 8100000c 00036163 6c000000");
    EXPECT_EQ(client.ask_status(call(3, 3, "foo")), 3);
    EXPECT_EQ(client.ask_status(call(4, 77, "foo")), 4);
}

TEST_F(Probe, RootLengthOutOfRangeEndsTheConnection)
{
    RawClient short_one(broker.socket());
    short_one.send(from_hex("00030001 00000000 00000002"));
    EXPECT_TRUE(short_one.closed_by_peer());
    RawClient long_one(broker.socket());
    long_one.send(from_hex("00030001 00000000 00100001"));
    EXPECT_TRUE(long_one.closed_by_peer());
    EXPECT_EQ(client.ask_status(from_hex("00030001 00000000 00000004")), 0);
}

TEST_F(Probe, AnswersWithoutAStandingAreIgnored)
{
    RawClient owner(broker.socket());
    const auto added = attributes(owner.ask(add_request(1, "o", method_m)).at(0));
    const Bytes object = attr_bytes(UBUS_ATTR_OBJID, added.at(UBUS_ATTR_OBJID));
    const Bytes status = attr_u32(UBUS_ATTR_STATUS, 0);
    RawClient stranger(broker.socket());
    // Somebody else's object; no object; no status; nobody there to hear it.
    stranger.send(message(UBUS_MSG_STATUS, 9, client.id(), status + object));
    owner.send(message(UBUS_MSG_STATUS, 9, client.id(), status));
    owner.send(message(UBUS_MSG_STATUS, 9, client.id(), object));
    owner.send(message(UBUS_MSG_DATA, 9, client.id(), object));
    owner.send(message(UBUS_MSG_STATUS, 9, 0x12345678, status + object));
    EXPECT_EQ(owner.ask_status(from_hex("00030001 00000000 00000004")), 0);
    EXPECT_EQ(stranger.ask_status(from_hex("00030001 00000000 00000004")), 0);
    EXPECT_TRUE(client.silent(std::chrono::milliseconds(20)));
    // With everything in place it arrives, under the object's id.
    owner.send(message(UBUS_MSG_STATUS, 9, client.id(), status + object));
    EXPECT_EQ(to_hex(client.receive()),
              to_hex(message(UBUS_MSG_STATUS, 9, u32_at(added.at(UBUS_ATTR_OBJID), 0), status + object)));
}

TEST_F(Probe, SubscribeErrors)
{
    RawClient owner(broker.socket());
    const uint32_t target =
        u32_at(attributes(owner.ask(add_request(1, "o", method_m)).at(0)).at(UBUS_ATTR_OBJID), 0);
    const uint32_t own =
        u32_at(attributes(client.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0)).at(UBUS_ATTR_OBJID), 0);
    auto subscribe = [&](int type, uint32_t object, uint32_t to) {
        return client.ask_status(
            message(type, 2, 0, attr_u32(UBUS_ATTR_OBJID, object) + attr_u32(UBUS_ATTR_TARGET, to)));
    };
    EXPECT_EQ(client.ask_status(message(UBUS_MSG_SUBSCRIBE, 2, 0)), 2);
    EXPECT_EQ(subscribe(UBUS_MSG_SUBSCRIBE, own, own), 2);
    EXPECT_EQ(subscribe(UBUS_MSG_SUBSCRIBE, target, own), 2);
    EXPECT_EQ(subscribe(UBUS_MSG_SUBSCRIBE, own, 0x7777), 4);
    EXPECT_EQ(subscribe(UBUS_MSG_SUBSCRIBE, own, 1), 4);
    EXPECT_EQ(subscribe(UBUS_MSG_UNSUBSCRIBE, own, target), 4);
    EXPECT_EQ(subscribe(UBUS_MSG_SUBSCRIBE, own, target), 0);
    EXPECT_EQ(to_hex(owner.receive()),
              to_hex(message(UBUS_MSG_NOTIFY, 1, 0,
                             attr_u32(UBUS_ATTR_OBJID, target) + attr_bytes(UBUS_ATTR_ACTIVE, {1}))));
    // A second one is accepted and changes nothing.
    EXPECT_EQ(subscribe(UBUS_MSG_SUBSCRIBE, own, target), 0);
    owner.send(message(UBUS_MSG_NOTIFY, 3, target,
                       attr_u32(UBUS_ATTR_OBJID, target) + attr_string(UBUS_ATTR_METHOD, "n") +
                           attr_bytes(UBUS_ATTR_DATA, {}) + attr_bytes(UBUS_ATTR_NO_REPLY, {1})));
    EXPECT_EQ(client.receive()[1], UBUS_MSG_INVOKE);
    EXPECT_EQ(subscribe(UBUS_MSG_UNSUBSCRIBE, own, target), 0);
    EXPECT_EQ(subscribe(UBUS_MSG_UNSUBSCRIBE, own, target), 4);
    EXPECT_EQ(attributes(owner.receive()).at(UBUS_ATTR_ACTIVE), Bytes{0});
}

TEST_F(Probe, MonitorSeesWhatOthersSayAndHear)
{
    RawClient monitor(broker.socket());
    ASSERT_EQ(monitor.ask_status(call(1, 3, "add")), 0);
    ASSERT_EQ(client.ask_status(from_hex("00030007 00001234 00000004")), 0);
    const int types[] = {UBUS_MSG_PING, UBUS_MSG_DATA, UBUS_MSG_STATUS};
    for (int i = 0; i < 3; i++) {
        const Bytes seen = monitor.receive();
        EXPECT_EQ(seen[1], UBUS_MSG_MONITOR);
        const auto fields = attributes(seen);
        EXPECT_EQ(u32_at(fields.at(0), 0), client.id());
        EXPECT_EQ(u32_at(fields.at(1), 0), 0x1234u);
        EXPECT_EQ(fields.at(2), Bytes{static_cast<uint8_t>(i > 0)});
        EXPECT_EQ(u32_at(fields.at(3), 0), 7u);
        EXPECT_EQ(u32_at(fields.at(4), 0), static_cast<uint32_t>(types[i]));
    }
    ASSERT_EQ(monitor.ask_status(call(2, 3, "remove")), 0);
    ASSERT_EQ(client.ask_status(from_hex("00030008 00000000 00000004")), 0);
    EXPECT_TRUE(monitor.silent(std::chrono::milliseconds(20)));
}

TEST_F(Probe, SocketIsOpenToAllAndGoesWithTheBroker)
{
    struct stat info = {};
    ASSERT_EQ(stat(broker.socket().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0666u);
    EXPECT_EQ(broker.end(), 0);
    EXPECT_NE(access(broker.socket().c_str(), F_OK), 0);
}

} // namespace
