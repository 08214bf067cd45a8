// The broker goes away and comes back.
#include "support.h"

#include <csignal>

using namespace support;

namespace {

int lost_count = 0;

class Reconnect : public ::testing::Test {
protected:
    Reconnect()
    {
        lost_count = 0;
        ctx = ubus_connect(broker.socket().c_str());
        ctx->connection_lost = [](ubus_context *) {
            lost_count++;
            uloop_end();
        };
    }
    ~Reconnect() override
    {
        ubus_free(ctx);
        uloop_done();
    }
    Broker broker;
    ubus_context *ctx;
};

// An object whose owner never answers.
struct Mute {
    explicit Mute(const Broker &broker) : owner(broker.socket())
    {
        const auto answers =
            owner.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0,
                              attr_string(UBUS_ATTR_OBJPATH, "mute") + attr_bytes(UBUS_ATTR_SIGNATURE, {})));
        id = u32_at(attributes(answers.at(0)).at(UBUS_ATTR_OBJID), 0);
    }
    RawClient owner;
    uint32_t id;
};

TEST_F(Reconnect, WaitingCallHearsOfTheLoss)
{
    Mute mute(broker);
    Child killer(std::function<int()>([this] {
        usleep(50000);
        return kill(broker.pid(), SIGKILL);
    }));
    EXPECT_EQ(ubus_invoke(ctx, mute.id, "m", nullptr, nullptr, nullptr, 20000),
              UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(lost_count, 1);
    EXPECT_EQ(ubus_invoke(ctx, mute.id, "m", nullptr, nullptr, nullptr, 20000), UBUS_STATUS_INVALID_ARGUMENT);
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx, "mute", &id), UBUS_STATUS_INVALID_ARGUMENT);
    broker.stop(); // a killed process may lose its connections a moment before it stops listening
    EXPECT_EQ(ubus_reconnect(ctx, broker.socket().c_str()), UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(Reconnect, AsynchronousCallsEndWithATimeout)
{
    Mute mute(broker);
    static std::vector<int> results;
    results.clear();
    ubus_request reqs[2];
    for (ubus_request &req : reqs) {
        ASSERT_EQ(ubus_invoke_async(ctx, mute.id, "m", nullptr, &req), 0);
        req.complete_cb = [](ubus_request *, int ret) {
            EXPECT_EQ(lost_count, 0) << "requests end before the loss is told";
            results.push_back(ret);
        };
        ubus_complete_request_async(ctx, &req);
    }
    ubus_add_uloop(ctx);
    broker.stop();
    uloop_run();
    EXPECT_EQ(results, (std::vector<int>{UBUS_STATUS_TIMEOUT, UBUS_STATUS_TIMEOUT}));
    EXPECT_EQ(lost_count, 1);
    // No further wake-ups.
    uloop_run_timeout(0);
    uloop_run_timeout(0);
    EXPECT_EQ(lost_count, 1);
}

TEST_F(Reconnect, DefaultHandlerLetsTheLoopRunOn)
{
    ubus_context *plain = ubus_connect(broker.socket().c_str());
    ubus_add_uloop(plain);
    broker.stop();
    static bool ended_by_timer;
    ended_by_timer = false;
    uloop_timeout timer = {};
    timer.cb = [](uloop_timeout *) {
        ended_by_timer = true;
        uloop_end();
    };
    uloop_timeout_set(&timer, 50);
    uloop_run();
    EXPECT_TRUE(ended_by_timer);
    EXPECT_TRUE(plain->sock.eof);
    EXPECT_FALSE(plain->sock.registered);
    ubus_free(plain);
}

TEST_F(Reconnect, ObjectsComeBackEventPatternsDoNot)
{
    auto handler = [](ubus_context *c, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
        return ubus_send_reply(c, req, msg);
    };
    const ubus_method methods[] = {{"m", handler, 0, 0, nullptr, 0}};
    ubus_object_type type = {"t", 0, methods, 1};
    ubus_object objects[2] = {};
    const char *names[] = {"t.one", "t.two"};
    static int events;
    events = 0;
    ubus_event_handler listener = {};
    listener.cb = [](ubus_context *, ubus_event_handler *, const char *, blob_attr *) { events++; };
    for (int i = 0; i < 2; i++) {
        objects[i].name = names[i];
        objects[i].type = &type;
        objects[i].methods = methods;
        objects[i].n_methods = 1;
        ASSERT_EQ(ubus_add_object(ctx, &objects[i]), 0);
    }
    ASSERT_EQ(ubus_register_event_handler(ctx, &listener, "e*"), 0);
    const uint32_t old_ids[] = {objects[0].id, objects[1].id, listener.obj.id};

    broker.stop();
    broker.start();
    // Twice: the second time nothing was wrong before.
    for (int round = 0; round < 2; round++) {
        ASSERT_EQ(ubus_reconnect(ctx, broker.socket().c_str()), 0);
        EXPECT_NE(objects[0].id, old_ids[0]);
        EXPECT_NE(objects[1].id, old_ids[1]);
        EXPECT_NE(listener.obj.id, old_ids[2]);
        EXPECT_NE(type.id, 0u);

        ubus_context *other = ubus_connect(broker.socket().c_str());
        for (int i = 0; i < 2; i++) {
            uint32_t id = 0;
            EXPECT_EQ(ubus_lookup_id(other, names[i], &id), 0);
            EXPECT_EQ(id, objects[i].id);
        }
        blob_buf b = {};
        blob_buf_init(&b, 0);
        uint32_t id = 0;
        EXPECT_EQ(ubus_send_event(other, "event", b.head), 0);
        EXPECT_EQ(ubus_lookup_id(ctx, "t.one", &id), 0);
        EXPECT_EQ(events, round);
        EXPECT_EQ(ubus_register_event_handler(ctx, &listener, "e*"), 0);
        EXPECT_EQ(ubus_send_event(other, "event", b.head), 0);
        EXPECT_EQ(ubus_lookup_id(ctx, "t.one", &id), 0);
        EXPECT_EQ(events, round + 1);
        blob_buf_free(&b);
        ubus_free(other);
    }
}

TEST_F(Reconnect, ObjectWhoseNameIsTakenComesBackLater)
{
    ubus_object_type type = {"t", 0, nullptr, 0};
    ubus_object object = {};
    object.name = "t.taken";
    object.type = &type;
    ASSERT_EQ(ubus_add_object(ctx, &object), 0);
    broker.stop();
    broker.start();
    {
        RawClient squatter(broker.socket());
        ASSERT_EQ(squatter.ask_status(
                      message(UBUS_MSG_ADD_OBJECT, 1, 0, attr_string(UBUS_ATTR_OBJPATH, "t.taken"))),
                  0);
        EXPECT_EQ(ubus_reconnect(ctx, broker.socket().c_str()), 0);
    }
    uint32_t id = 0;
    EXPECT_TRUE(wait_until([&] { return ubus_lookup_id(ctx, "t.taken", &id) == UBUS_STATUS_NOT_FOUND; }));
    EXPECT_EQ(ubus_reconnect(ctx, broker.socket().c_str()), 0);
    EXPECT_EQ(ubus_lookup_id(ctx, "t.taken", &id), 0);
    EXPECT_EQ(id, object.id);
}

} // namespace
