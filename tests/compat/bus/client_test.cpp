// The client library against our broker, with a provider in a process of its own.
#include "support.h"

#include <csignal>
#include <fcntl.h>

using namespace support;

namespace {

const blobmsg_policy echo_policy[] = {
    {"x", BLOBMSG_TYPE_INT32}, {"s", BLOBMSG_TYPE_STRING}, {"l", BLOBMSG_TYPE_ARRAY}};

int echo(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg)
{
    return ubus_send_reply(ctx, req, msg);
}

int nothing(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return 0;
}

int negative(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return -1;
}

int never(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    static ubus_request_data kept;
    ubus_defer_request(ctx, req, &kept);
    return 0;
}

int twice(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    blob_buf b = {};
    for (uint32_t i = 1; i <= 2; i++) {
        blob_buf_init(&b, 0);
        blobmsg_add_u32(&b, "n", i);
        ubus_send_reply(ctx, req, b.head);
    }
    blob_buf_free(&b);
    return 0;
}

struct Deferred {
    ubus_context *ctx;
    ubus_request_data request;
    uloop_timeout timer;
};

int later(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    static Deferred deferred;
    deferred.ctx = ctx;
    ubus_defer_request(ctx, req, &deferred.request);
    deferred.timer.cb = [](uloop_timeout *) {
        ubus_send_reply(deferred.ctx, &deferred.request, nullptr);
        ubus_complete_deferred_request(deferred.ctx, &deferred.request, UBUS_STATUS_NOT_SUPPORTED);
    };
    uloop_timeout_set(&deferred.timer, 10);
    return 0;
}

// A nested call of the bus while the arguments are still needed.
int nested(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *method, blob_attr *msg)
{
    uint32_t id = 0;
    if (strcmp(method, "nested") != 0 || ubus_lookup_id(ctx, "t.o", &id) != 0 || !id) {
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return strcmp(method, "nested") == 0 ? ubus_send_reply(ctx, req, msg) : UBUS_STATUS_UNKNOWN_ERROR;
}

int handler_runs = 0;

int counted(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    handler_runs++;
    return 0;
}

// A call of oneself has to run into its time-out; the called method runs afterwards.
int call_myself(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *, blob_attr *)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    const int before = handler_runs;
    const int status = ubus_invoke(ctx, obj->id, "counted", b.head, nullptr, nullptr, 50);
    blobmsg_add_u32(&b, "status", static_cast<uint32_t>(status));
    blobmsg_add_u32(&b, "runs", static_cast<uint32_t>(handler_runs - before));
    ubus_send_reply(ctx, req, b.head);
    blob_buf_free(&b);
    return 0;
}

int runs(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blobmsg_add_u32(&b, "n", static_cast<uint32_t>(handler_runs));
    ubus_send_reply(ctx, req, b.head);
    blob_buf_free(&b);
    return 0;
}

int who(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blobmsg_add_string(&b, "who", req->acl.user);
    blobmsg_add_string(&b, "who", req->acl.group);
    blobmsg_add_string(&b, "who", req->acl.object);
    ubus_send_reply(ctx, req, b.head);
    blob_buf_free(&b);
    return 0;
}

// Takes a descriptor, writes into it, and gives one of its own back.
int descriptors(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    const int theirs = ubus_request_get_caller_fd(req);
    if (theirs < 0 || write(theirs, "hello", 5) != 5) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    close(theirs);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0 || write(ends[1], "back", 4) != 4) {
        return UBUS_STATUS_SYSTEM_ERROR;
    }
    close(ends[1]);
    ubus_request_set_fd(ctx, req, ends[0]);
    return 0;
}

int die(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    _exit(9);
}

ubus_method method(const char *name, ubus_handler_t handler, const blobmsg_policy *policy = nullptr,
                   int count = 0, unsigned long mask = 0)
{
    return {name, handler, mask, 0, policy, count};
}

int provide(const std::string &socket)
{
    static const ubus_method methods[] = {method("echo", echo, echo_policy, 3),
                                          method("masked", echo, echo_policy, 3, 1 << 1),
                                          method("nothing", nothing),
                                          method("negative", negative),
                                          method("never", never),
                                          method("twice", twice),
                                          method("later", later),
                                          method("nested", nested),
                                          method("counted", counted),
                                          method("call_myself", call_myself),
                                          method("runs", runs),
                                          method("who", who),
                                          method("descriptors", descriptors),
                                          method("die", die)};
    static ubus_object_type type = {"t", 0, methods, std::size(methods)};
    static ubus_object object = {};
    static const ubus_method any[] = {method(nullptr, echo)};
    static ubus_object_type any_type = {"any", 0, nullptr, 0};
    static ubus_object any_object = {};

    ubus_context *ctx = ubus_connect(socket.c_str());
    object.name = "t.o";
    object.type = &type;
    object.methods = methods;
    object.n_methods = std::size(methods);
    any_object.name = "t.any";
    any_object.type = &any_type;
    any_object.methods = any;
    any_object.n_methods = 1;
    if (!ctx || ubus_add_object(ctx, &any_object) || ubus_add_object(ctx, &object)) {
        return 1;
    }
    ctx->connection_lost = [](ubus_context *) { uloop_end(); };
    ubus_add_uloop(ctx);
    uloop_run();
    ubus_free(ctx);
    uloop_done();
    return 0;
}

class Client : public ::testing::Test {
protected:
    Client() : provider(std::function<int()>([this] { return provide(broker.socket()); }))
    {
        ctx = ubus_connect(broker.socket().c_str());
        blob_buf_init(&args, 0);
        EXPECT_TRUE(wait_until([this] { return ubus_lookup_id(ctx, "t.o", &id) == 0; }));
    }
    ~Client() override
    {
        blob_buf_free(&args);
        ubus_free(ctx);
        uloop_done();
    }
    int call(const char *method_name, int timeout = 10000)
    {
        replies.clear();
        return ubus_invoke(ctx, id, method_name, args.head, on_reply, this, timeout);
    }
    static void on_reply(ubus_request *req, int type, blob_attr *msg)
    {
        EXPECT_EQ(type, UBUS_MSG_DATA);
        const auto *first = static_cast<uint8_t *>(blob_data(msg));
        static_cast<Client *>(req->priv)->replies.emplace_back(first, first + blob_len(msg));
    }
    Bytes arguments() const
    {
        const auto *first = static_cast<uint8_t *>(blob_data(args.head));
        return {first, first + blob_len(args.head)};
    }
    Broker broker;
    Child provider;
    ubus_context *ctx = nullptr;
    uint32_t id = 0;
    blob_buf args = {};
    std::vector<Bytes> replies;
};

TEST_F(Client, CallWithArguments)
{
    blobmsg_add_u32(&args, "x", 5);
    blobmsg_add_string(&args, "s", "hi");
    EXPECT_EQ(call("echo"), 0);
    EXPECT_EQ(replies, std::vector<Bytes>{arguments()});
}

TEST_F(Client, StatusesComeThrough)
{
    EXPECT_EQ(call("nothing"), 0);
    EXPECT_TRUE(replies.empty());
    EXPECT_EQ(call("negative"), -1);
    EXPECT_EQ(call("no_such"), UBUS_STATUS_METHOD_NOT_FOUND);
    EXPECT_EQ(call("never", 30), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(call("twice"), 0);
    EXPECT_EQ(replies.size(), 2u);
    EXPECT_EQ(ubus_invoke(ctx, 0x99999, "m", args.head, nullptr, nullptr, 1000), UBUS_STATUS_NOT_FOUND);
}

TEST_F(Client, NullMessageIsAnEmptyOne)
{
    EXPECT_EQ(ubus_invoke(ctx, id, "echo", nullptr, on_reply, this, 1000), 0);
    EXPECT_EQ(replies, std::vector<Bytes>{Bytes{}});
}

TEST_F(Client, WildcardMethodTakesEveryName)
{
    uint32_t any = 0;
    ASSERT_EQ(ubus_lookup_id(ctx, "t.any", &any), 0);
    EXPECT_EQ(ubus_invoke(ctx, any, "whatever", args.head, on_reply, this, 1000), 0);
    EXPECT_EQ(replies.size(), 1u);
}

TEST_F(Client, DeferredReply)
{
    EXPECT_EQ(call("later"), UBUS_STATUS_NOT_SUPPORTED);
    EXPECT_EQ(replies, std::vector<Bytes>{Bytes{}});
}

TEST_F(Client, ArgumentsStayValidDuringNestedCalls)
{
    blobmsg_add_string(&args, "s", std::string(100000, 'q').c_str());
    EXPECT_EQ(call("nested"), 0);
    EXPECT_EQ(replies, std::vector<Bytes>{arguments()});
}

TEST_F(Client, CallOfOneselfTimesOutAndRunsAfterwards)
{
    ASSERT_EQ(call("call_myself"), 0);
    blob_buf_init(&args, 0);
    blobmsg_add_u32(&args, "status", UBUS_STATUS_TIMEOUT);
    blobmsg_add_u32(&args, "runs", 0);
    EXPECT_EQ(replies, std::vector<Bytes>{arguments()});
    blob_buf_init(&args, 0);
    blobmsg_add_u32(&args, "n", 1);
    EXPECT_TRUE(
        wait_until([this] { return call("runs") == 0 && replies == std::vector<Bytes>{arguments()}; }));
}

TEST_F(Client, CallerIsNamed)
{
    ASSERT_EQ(call("who"), 0);
    blobmsg_add_string(&args, "who", "root");
    blobmsg_add_string(&args, "who", "root");
    blobmsg_add_string(&args, "who", "t.o");
    EXPECT_EQ(replies, std::vector<Bytes>{arguments()});
}

TEST_F(Client, LargeMessagesAndTheLimit)
{
    blobmsg_add_string(&args, "s", std::string(900 * 1024, 'z').c_str());
    EXPECT_EQ(call("echo"), 0);
    EXPECT_EQ(replies, std::vector<Bytes>{arguments()});
    // As long as a message may be: the broker adds the caller's names, so this one it refuses itself.
    blob_buf_init(&args, 0);
    blobmsg_add_string(&args, "s", std::string(1048516, 'z').c_str());
    EXPECT_EQ(call("echo"), UBUS_STATUS_INVALID_ARGUMENT);
    blob_buf_init(&args, 0);
    blobmsg_add_string(&args, "s", std::string(1048592, 'z').c_str());
    EXPECT_EQ(call("echo"), UBUS_STATUS_INVALID_ARGUMENT);
    blob_buf_init(&args, 0);
    for (int i = 0; i < 40; i++) {
        EXPECT_EQ(call("nothing"), 0) << "connection unharmed, buffers shrink";
    }
}

TEST_F(Client, DescriptorsBothWays)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ubus_request req;
    static int received;
    received = -1;
    ASSERT_EQ(ubus_invoke_async_fd(ctx, id, "descriptors", args.head, &req, ends[1]), 0);
    req.fd_cb = [](ubus_request *, int fd) { received = fd; };
    EXPECT_EQ(ubus_complete_request(ctx, &req, 10000), 0);
    char text[16] = {};
    EXPECT_EQ(read(ends[0], text, sizeof(text)), 5);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(read(ends[0], text, sizeof(text)), 0) << "our own end is closed";
    ASSERT_GE(received, 0);
    EXPECT_EQ(read(received, text, sizeof(text)), 4);
    close(received);
    close(ends[0]);
    EXPECT_EQ(call("descriptors"), UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(Client, SignaturesAndMasks)
{
    struct Found {
        std::string paths;
        Bytes signature;
    } found;
    EXPECT_EQ(ubus_lookup(
                  ctx, nullptr,
                  [](ubus_context *, ubus_object_data *data, void *priv) {
                      auto *f = static_cast<Found *>(priv);
                      f->paths += std::string(data->path) + " ";
                      const auto *first = static_cast<uint8_t *>(blob_data(data->signature));
                      f->signature.assign(first, first + blob_len(data->signature));
                  },
                  &found),
              0);
    EXPECT_EQ(found.paths, "t.any t.o ");
    // echo with all three arguments, masked with the second only.
    const std::string start =
        to_hex(from_hex("82000030 00046563 686f0000 8500000c 00017800 00000005 8500000c 00017300"
                        "00000003 8500000c 00016c00 00000001 8200001c 00066d61 736b6564 00000000"
                        "8500000c 00017300 00000003"));
    EXPECT_EQ(to_hex(found.signature).substr(0, start.size()), start);
    EXPECT_EQ(ubus_lookup(ctx, "nobody", nullptr, nullptr), UBUS_STATUS_NOT_FOUND);
}

TEST_F(Client, AsynchronousCalls)
{
    static int completed;
    static int status;
    static int data;
    completed = data = 0;
    status = -1;
    ubus_add_uloop(ctx);
    ubus_request reqs[3];
    for (ubus_request &req : reqs) {
        ASSERT_EQ(ubus_invoke_async(ctx, id, "twice", args.head, &req), 0);
        req.data_cb = [](ubus_request *, int, blob_attr *) { data++; };
        req.complete_cb = [](ubus_request *, int ret) {
            status = ret;
            if (++completed == 2) {
                uloop_end();
            }
        };
        ubus_complete_request_async(ctx, &req);
    }
    ubus_abort_request(ctx, &reqs[1]);
    uloop_run();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(data, 4);
    ubus_abort_request(ctx, &reqs[0]);
}

TEST_F(Client, DataDuringADataCallbackWaits)
{
    static int depth;
    static int data;
    static int completed;
    depth = data = completed = 0;
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx, id, "twice", args.head, &req), 0);
    req.data_cb = [](ubus_request *r, int, blob_attr *) {
        EXPECT_EQ(depth++, 0);
        data++;
        uint32_t found = 0;
        // Receives the second reply and the status meanwhile.
        EXPECT_EQ(ubus_lookup_id(r->ctx, "t.any", &found), 0);
        EXPECT_EQ(completed, 0);
        depth--;
    };
    req.complete_cb = [](ubus_request *, int) { completed++; };
    EXPECT_EQ(ubus_complete_request(ctx, &req, 10000), 0);
    EXPECT_EQ(data, 2);
    EXPECT_EQ(completed, 1);
}

TEST_F(Client, ProviderThatDiesMidCallMeansATimeout)
{
    EXPECT_EQ(call("die", 100), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(provider.status(), 9);
    EXPECT_EQ(call("echo", 100), UBUS_STATUS_NOT_FOUND);
}

struct EventLog : ubus_event_handler {
    EventLog() : ubus_event_handler{}
    {
        cb = [](ubus_context *, ubus_event_handler *ev, const char *type, blob_attr *msg) {
            static_cast<EventLog *>(ev)->names.emplace_back(type);
            static_cast<EventLog *>(ev)->lengths.push_back(blob_len(msg));
        };
    }
    std::vector<std::string> names;
    std::vector<size_t> lengths;
};

TEST_F(Client, EventsByPattern)
{
    EventLog log;
    ubus_context *sender = ubus_connect(broker.socket().c_str());
    ASSERT_NE(sender, nullptr);
    EXPECT_EQ(ubus_register_event_handler(ctx, &log, "my.*"), 0);
    EXPECT_EQ(ubus_register_event_handler(ctx, &log, "my.exact"), 0);
    EXPECT_EQ(ubus_register_event_handler(ctx, &log, "other"), 0);
    EXPECT_EQ(ubus_register_event_handler(ctx, &log, ""), UBUS_STATUS_PERMISSION_DENIED);
    blobmsg_add_u32(&args, "k", 1);
    for (const char *name : {"my.exact", "other", "others", "my", "my.", "end"}) {
        EXPECT_EQ(ubus_send_event(sender, name, args.head), 0);
    }
    EXPECT_EQ(ubus_send_event(sender, "ubus.forged", args.head), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(ubus_send_event(ctx, "my.own", args.head), 0);
    uint32_t dummy = 0;
    ubus_lookup_id(ctx, "t.o", &dummy);
    EXPECT_EQ(log.names, (std::vector<std::string>{"my.exact", "other", "my."}));
    EXPECT_EQ(log.lengths, (std::vector<size_t>(3, blob_len(args.head))));
    EXPECT_EQ(ubus_unregister_event_handler(ctx, &log), 0);
    EXPECT_EQ(log.obj.id, 0u);
    EXPECT_EQ(ubus_send_event(sender, "my.late", args.head), 0);
    ubus_lookup_id(ctx, "t.o", &dummy);
    EXPECT_EQ(log.names.size(), 3u);
    ubus_free(sender);
}

TEST_F(Client, ObjectsAreAnnounced)
{
    EventLog log;
    ASSERT_EQ(ubus_register_event_handler(ctx, &log, "ubus.object.*"), 0);
    ubus_object_type type = {"x", 0, nullptr, 0};
    ubus_object object = {};
    object.name = "x.y";
    object.type = &type;
    EXPECT_EQ(ubus_add_object(ctx, &object), 0);
    EXPECT_NE(object.id, 0u);
    EXPECT_NE(type.id, 0u);
    ubus_object twin = {};
    twin.name = "x.y";
    twin.type = &type;
    EXPECT_EQ(ubus_add_object(ctx, &twin), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_remove_object(ctx, &object), 0);
    EXPECT_EQ(object.id, 0u);
    EXPECT_EQ(type.id, 0u);
    EXPECT_EQ(log.names, (std::vector<std::string>{"ubus.object.add", "ubus.object.remove"}));
    EXPECT_EQ(ubus_unregister_event_handler(ctx, &log), 0);
}

TEST_F(Client, ConnectionToNowhere)
{
    EXPECT_EQ(ubus_connect("/nonexistent/socket"), nullptr);
    EXPECT_EQ(ubus_connect(std::string(200, 'x').c_str()), nullptr);
}

TEST_F(Client, SocketsAreNotInherited)
{
    EXPECT_NE(fcntl(ctx->sock.fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(ctx->sock.fd, F_GETFL) & O_NONBLOCK, 0);
}

} // namespace
