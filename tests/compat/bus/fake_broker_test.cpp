// The client library against a broker made of bytes: what it says, byte by byte, and what it makes of bad
// answers.
#include "support.h"

#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

using namespace support;

namespace {

const Bytes hello = from_hex("00000000 bfc46fee 00000004");

// Listens, and plays one connection in a thread.
class FakeBroker {
public:
    explicit FakeBroker(std::function<void(RawClient &)> script)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, path().c_str());
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) < 0 ||
            ::listen(listener_, 5)) {
            throw std::runtime_error("cannot listen");
        }
        thread_ = std::thread([this, script] {
            RawClient peer(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
            try {
                script(peer);
            } catch (const std::exception &error) {
                ADD_FAILURE() << error.what();
            }
        });
    }
    ~FakeBroker()
    {
        thread_.join();
        close(listener_);
    }
    std::string path() const { return dir_.path("bus"); }

private:
    TempDir dir_;
    int listener_;
    std::thread thread_;
};

struct Connection {
    explicit Connection(const FakeBroker &broker) : ctx(ubus_connect(broker.path().c_str())) {}
    ~Connection()
    {
        if (ctx) {
            ubus_free(ctx);
        }
        uloop_done();
    }
    ubus_context *ctx;
};

// One connection of the recording, the sides swapped: we are the broker.
void play(RawClient &peer, int connection, size_t count)
{
    std::ifstream file(SESSION_FILE);
    std::string line;
    while (count && std::getline(file, line)) {
        std::istringstream fields(line);
        int number = 0;
        std::string direction;
        std::string type;
        std::string hex;
        fields >> number >> direction >> type;
        std::getline(fields, hex);
        if (number != connection) {
            continue;
        }
        count--;
        const Bytes bytes = from_hex(hex);
        if (direction == "<") {
            peer.send(bytes);
        } else {
            ASSERT_EQ(to_hex(peer.receive()), to_hex(bytes)) << type;
        }
    }
    EXPECT_EQ(count, 0u);
}

int method_m(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blobmsg_add_string(&b, "y", "ok");
    ubus_send_reply(ctx, req, b.head);
    blob_buf_free(&b);
    return 0;
}

TEST(FakeBroker, ProviderSpeaksAsRecorded)
{
    // Up to the first notification.
    FakeBroker broker([](RawClient &peer) { play(peer, 1, 17); });
    Connection connection(broker);
    ASSERT_NE(connection.ctx, nullptr);

    const blobmsg_policy policy[] = {{"x", BLOBMSG_TYPE_INT32}, {"s", BLOBMSG_TYPE_STRING}};
    const ubus_method methods[] = {{"m", method_m, 0, 0, policy, 2},
                                   {"n", method_m, 0, 0, nullptr, 0},
                                   {"n2", method_m, 0, 0, nullptr, 0},
                                   {"bye", method_m, 0, 0, nullptr, 0}};
    ubus_object_type type = {"t.o", 0, methods, 4};
    static ubus_object object;
    object = {};
    object.name = "t.o";
    object.type = &type;
    object.methods = methods;
    object.n_methods = 4;
    object.subscribe_cb = [](ubus_context *, ubus_object *obj) {
        EXPECT_TRUE(obj->has_subscribers);
        uloop_end();
    };
    static std::string heard;
    heard.clear();
    ubus_event_handler events = {};
    events.cb = [](ubus_context *, ubus_event_handler *, const char *name, blob_attr *) { heard = name; };

    EXPECT_EQ(ubus_add_object(connection.ctx, &object), 0);
    EXPECT_EQ(object.id, 0x5a3767ffu);
    EXPECT_EQ(type.id, 0x12a7d999u);
    EXPECT_EQ(ubus_register_event_handler(connection.ctx, &events, "my.*"), 0);
    connection.ctx->connection_lost = [](ubus_context *) { uloop_end(); };
    ubus_add_uloop(connection.ctx);
    uloop_run();
    EXPECT_EQ(heard, "my.ev");
    EXPECT_TRUE(object.has_subscribers);
}

TEST(FakeBroker, CallerSpeaksAsRecorded)
{
    FakeBroker broker([](RawClient &peer) { play(peer, 3, 7); });
    Connection connection(broker);
    ASSERT_NE(connection.ctx, nullptr);
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(connection.ctx, "t.o", &id), 0);
    EXPECT_EQ(id, 0x5a3767ffu);
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blobmsg_add_u32(&b, "x", 5);
    blobmsg_add_string(&b, "s", "hi");
    std::string answer;
    auto on_data = [](ubus_request *req, int, blob_attr *msg) {
        const blobmsg_policy policy[] = {{"y", BLOBMSG_TYPE_STRING}};
        blob_attr *y;
        blobmsg_parse_attr(policy, 1, &y, msg);
        *static_cast<std::string *>(req->priv) = y ? blobmsg_get_string(y) : "";
    };
    EXPECT_EQ(ubus_invoke(connection.ctx, id, "m", b.head, on_data, &answer, 5000), 0);
    EXPECT_EQ(answer, "ok");
    blob_buf_free(&b);
}

TEST(FakeBroker, EventSenderSpeaksAsRecorded)
{
    FakeBroker broker([](RawClient &peer) { play(peer, 6, 3); });
    Connection connection(broker);
    ASSERT_NE(connection.ctx, nullptr);
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blobmsg_add_u32(&b, "k", 1);
    EXPECT_EQ(ubus_send_event(connection.ctx, "my.ev", b.head), 0);
    blob_buf_free(&b);
}

void expect_no_connection(const Bytes &greeting)
{
    FakeBroker broker([greeting](RawClient &peer) { peer.send(greeting); });
    Connection connection(broker);
    EXPECT_EQ(connection.ctx, nullptr) << to_hex(greeting);
}

TEST(FakeBroker, GreetingMustBeSound)
{
    expect_no_connection({});
    expect_no_connection(from_hex("00000000 bfc4"));
    expect_no_connection(from_hex("00010000 bfc46fee 00000004"));
    expect_no_connection(from_hex("01000000 bfc46fee 00000004"));
    expect_no_connection(from_hex("00000000 bfc46fee 00000008"));
}

int lookup_answered_by(const Bytes &answer, bool then_wait = false)
{
    FakeBroker broker([&](RawClient &peer) {
        peer.send(hello);
        peer.receive();
        peer.try_send(answer);
        if (then_wait) {
            EXPECT_TRUE(peer.closed_by_peer());
        }
    });
    Connection connection(broker);
    uint32_t id = 0;
    EXPECT_NE(connection.ctx, nullptr);
    return ubus_lookup_id(connection.ctx, "x", &id);
}

const Bytes good_status = from_hex("00010001 00000000 0000000c 01000008 00000000");

TEST(FakeBroker, BrokenFramingEndsTheConnection)
{
    EXPECT_EQ(lookup_answered_by(from_hex("00010001 00000000 00000002"), true),
              UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(lookup_answered_by(from_hex("00010001 00000000 00100001"), true),
              UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(lookup_answered_by(from_hex("00010001 00000000 00ffffff"), true),
              UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(lookup_answered_by(from_hex("00010001 0000")), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(lookup_answered_by({}), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(lookup_answered_by(good_status), UBUS_STATUS_OK) << "an answer before the end counts";
}

TEST(FakeBroker, StrangeMessagesAreSkipped)
{
    Bytes answers;
    answers = answers + from_hex("00010001 00000001 0000000c 01000008 00000005"); // other peer
    answers = answers + from_hex("00010002 00000000 0000000c 01000008 00000005"); // other sequence number
    answers = answers + from_hex("01010001 00000000 0000000c 01000008 00000005"); // other version
    answers = answers + from_hex("00630001 00000000 00000004");                   // unknown type
    answers = answers + from_hex("00050007 00000009 00000004");                   // a call of nothing
    answers = answers + from_hex("000a0007 00000000 00000004");                   // a state of nothing
    answers =
        answers + from_hex("00020001 00000000 0000000c 03000009 00000005"); // data with a lying attribute
    answers = answers + from_hex("00020001 00000000 00000006 abcd");        // data of odd length
    EXPECT_EQ(lookup_answered_by(answers + good_status), UBUS_STATUS_OK);
    EXPECT_EQ(lookup_answered_by(from_hex("00010001 00000000 00000004")), UBUS_STATUS_INVALID_ARGUMENT);
}

TEST(FakeBroker, BrokerThatStopsInTheMiddleDoesNotHoldUpACall)
{
    FakeBroker broker([](RawClient &peer) {
        peer.send(hello);
        peer.receive();
        peer.send(from_hex("00020001 00001234 00001000 0300"));
        EXPECT_TRUE(peer.closed_by_peer());
    });
    Connection connection(broker);
    EXPECT_EQ(ubus_invoke(connection.ctx, 0x1234, "m", nullptr, nullptr, nullptr, 50), UBUS_STATUS_TIMEOUT);
}

TEST(FakeBroker, MessageInSinglePieces)
{
    FakeBroker broker([](RawClient &peer) {
        for (uint8_t byte : hello) {
            peer.send({byte});
        }
        peer.receive();
        for (uint8_t byte : good_status) {
            peer.send({byte});
        }
        EXPECT_TRUE(peer.closed_by_peer());
    });
    Connection connection(broker);
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(connection.ctx, "x", &id), 0);
}

// Calls that come in while the library waits for its own answer are kept, up to a limit, and served
// afterwards.
TEST(FakeBroker, FloodOfCallsDuringACall)
{
    static int handled;
    handled = 0;
    const int flood = 3000;
    FakeBroker broker([&](RawClient &peer) {
        peer.send(hello);
        peer.receive();
        peer.send(from_hex("00020001 00000000 0000000c 03000008 00005000") + good_status);
        peer.receive();
        const Bytes body = attr_u32(UBUS_ATTR_OBJID, 0x5000) + attr_string(UBUS_ATTR_METHOD, "m") +
                           attr_bytes(UBUS_ATTR_DATA, {});
        Bytes calls;
        for (int i = 0; i < flood; i++) {
            calls = calls + message(UBUS_MSG_INVOKE, static_cast<uint16_t>(i), 0x7777, body);
        }
        std::thread sender(
            [&] { peer.send(calls + from_hex("00010002 00000000 0000000c 01000008 00000000")); });
        int served = 0;
        int refused = 0;
        for (int i = 0; i < flood; i++) {
            const int status = status_of(peer.receive());
            served += status == 0;
            refused += status == UBUS_STATUS_NO_MEMORY;
        }
        sender.join();
        EXPECT_EQ(served, 1024);
        EXPECT_EQ(refused, flood - 1024);
    });
    Connection connection(broker);
    auto handler = [](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
        return handled++, 0;
    };
    const ubus_method methods[] = {{"m", handler, 0, 0, nullptr, 0}};
    ubus_object object = {};
    object.methods = methods;
    object.n_methods = 1;
    ASSERT_EQ(ubus_add_object(connection.ctx, &object), 0);
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(connection.ctx, "x", &id), 0);
    EXPECT_EQ(handled, 1024);
}

TEST(FakeBroker, BadCallsOfAnObject)
{
    FakeBroker broker([](RawClient &peer) {
        peer.send(hello);
        peer.receive();
        peer.send(from_hex("00020001 00000000 0000000c 03000008 00005000") + good_status);
        const Bytes object = attr_u32(UBUS_ATTR_OBJID, 0x5000);
        const Bytes data = attr_bytes(UBUS_ATTR_DATA, {});
        peer.send(message(UBUS_MSG_INVOKE, 1, 9, object + attr_string(UBUS_ATTR_METHOD, "m")));
        EXPECT_EQ(status_of(peer.receive()), UBUS_STATUS_INVALID_ARGUMENT);
        peer.send(message(UBUS_MSG_INVOKE, 2, 9, object + data));
        EXPECT_EQ(status_of(peer.receive()), UBUS_STATUS_INVALID_ARGUMENT);
        peer.send(message(UBUS_MSG_INVOKE, 3, 9,
                          attr_u32(UBUS_ATTR_OBJID, 0x6000) + attr_string(UBUS_ATTR_METHOD, "m") + data));
        EXPECT_EQ(status_of(peer.receive()), UBUS_STATUS_NOT_FOUND);
        peer.send(message(UBUS_MSG_INVOKE, 4, 9, object + attr_string(UBUS_ATTR_METHOD, "none") + data));
        EXPECT_EQ(status_of(peer.receive()), UBUS_STATUS_METHOD_NOT_FOUND);
        // Silent: nothing comes back, whatever it is.
        peer.send(message(UBUS_MSG_INVOKE, 5, 9,
                          attr_bytes(UBUS_ATTR_NO_REPLY, {1}) + object + attr_string(UBUS_ATTR_METHOD, "m") +
                              data));
        peer.send(message(UBUS_MSG_INVOKE, 6, 9, object + attr_string(UBUS_ATTR_METHOD, "m") + data));
        const Bytes last = peer.receive();
        EXPECT_EQ(last[3], 6);
        EXPECT_EQ(status_of(last), 0);
    });
    Connection connection(broker);
    auto handler = [](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
        return 0;
    };
    const ubus_method methods[] = {{"m", handler, 0, 0, nullptr, 0}};
    ubus_object object = {};
    object.methods = methods;
    object.n_methods = 1;
    ASSERT_EQ(ubus_add_object(connection.ctx, &object), 0);
    connection.ctx->connection_lost = [](ubus_context *) { uloop_end(); };
    ubus_add_uloop(connection.ctx);
    uloop_run();
}

} // namespace
