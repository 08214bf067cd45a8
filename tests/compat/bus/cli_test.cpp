// The ubus tool: what it prints, where, and its exit codes.
#include "support.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <unistd.h>

using namespace support;

namespace {

int method_reply(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg)
{
    return ubus_send_reply(ctx, req, msg);
}

int method_status(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *msg)
{
    const blobmsg_policy policy[] = {{"code", BLOBMSG_TYPE_INT32}};
    blob_attr *code;
    blobmsg_parse_attr(policy, 1, &code, msg);
    return code ? static_cast<int>(blobmsg_get_u32(code)) : 0;
}

int method_never(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    static ubus_request_data kept;
    ubus_defer_request(ctx, req, &kept);
    return 0;
}

int provide(const std::string &socket)
{
    static const blobmsg_policy policy[] = {
        {"b", BLOBMSG_TYPE_BOOL},   {"i", BLOBMSG_TYPE_INT32}, {"s", BLOBMSG_TYPE_STRING},
        {"a", BLOBMSG_TYPE_ARRAY},  {"t", BLOBMSG_TYPE_TABLE}, {"l", BLOBMSG_TYPE_INT64},
        {"d", BLOBMSG_TYPE_DOUBLE}, {"w", BLOBMSG_TYPE_INT16}, {"u", BLOBMSG_TYPE_UNSPEC}};
    static const ubus_method methods[] = {{"reply", method_reply, 0, 0, policy, 9},
                                          {"status", method_status, 0, 0, nullptr, 0},
                                          {"never", method_never, 0, 0, nullptr, 0}};
    static ubus_object_type type = {"t", 0, methods, 3};
    static ubus_object object = {};
    ubus_context *ctx = ubus_connect(socket.c_str());
    object.name = "demo.object";
    object.type = &type;
    object.methods = methods;
    object.n_methods = 3;
    if (!ctx || ubus_add_object(ctx, &object)) {
        return 1;
    }
    ctx->connection_lost = [](ubus_context *) { uloop_end(); };
    ubus_add_uloop(ctx);
    uloop_run();
    return 0;
}

class Cli : public ::testing::Test {
protected:
    Cli() : provider(std::function<int()>([this] { return provide(broker.socket()); }))
    {
        EXPECT_TRUE(wait_until([this] { return ubus({"list", "demo.object"}).code == 0; }));
    }
    std::vector<std::string> command(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {tool("ubus"), "-s", broker.socket()});
        return words;
    }
    Output ubus(const std::vector<std::string> &words, bool terminal = false) const
    {
        return run(command(words), terminal);
    }
    void expect(const std::vector<std::string> &words, int code, const std::string &out,
                const std::string &err)
    {
        const Output result = ubus(words);
        EXPECT_EQ(result.code, code) << words.at(0);
        EXPECT_EQ(result.out, out) << words.at(0);
        EXPECT_EQ(result.err, err) << words.at(0);
    }
    Broker broker;
    Child provider;
};

TEST_F(Cli, List)
{
    RawClient other(broker.socket());
    ASSERT_EQ(other.ask_status(
                  message(UBUS_MSG_ADD_OBJECT, 1, 0,
                          attr_string(UBUS_ATTR_OBJPATH, "another") + attr_bytes(UBUS_ATTR_SIGNATURE, {}))),
              0);
    expect({"list"}, 0, "another\ndemo.object\n", "");
    expect({"list", "demo*"}, 0, "demo.object\n", "");
    expect({"list", "none"}, 4, "", "Command failed: Not found\n");
    expect({"-S", "list", "none"}, 4, "", "");
    expect({"-S", "-v", "list", "demo.object"}, 0, "demo.object\n", "");
    expect({"list", "demo*", "-S", "-v"}, 0, "demo.object\n", "");
}

TEST_F(Cli, ListOfMethods)
{
    const Output result = ubus({"-v", "list", "demo.object"});
    EXPECT_EQ(result.code, 0);
    ASSERT_GT(result.out.size(), 25u);
    const std::string id = result.out.substr(15, 8);
    EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(result.out,
              "'demo.object' @" + id +
                  "\n"
                  "\t\"reply\":{\"b\":\"Boolean\",\"i\":\"Integer\",\"s\":\"String\",\"a\":\"Array\","
                  "\"t\":\"Table\",\"l\":\"(unknown)\",\"d\":\"(unknown)\",\"w\":\"(unknown)\","
                  "\"u\":\"(unknown)\"}\n"
                  "\t\"status\":{}\n"
                  "\t\"never\":{}\n");
}

TEST_F(Cli, CallPrintsReplies)
{
    expect({"call", "demo.object", "reply", R"({"x":5,"l":[1,{}]})"}, 0,
           "{\n\t\"x\": 5,\n\t\"l\": [\n\t\t1,\n\t\t{\n\t\t\t\n\t\t}\n\t]\n}\n", "");
    expect({"-S", "call", "demo.object", "reply", R"({"x":5})"}, 0, "{\"x\":5}\n", "");
    expect({"call", "demo.object", "reply"}, 0, "{\n\t\n}\n", "");
    expect({"call", "demo.object", "status"}, 0, "", "");
}

TEST_F(Cli, FailedCallsWithoutATerminal)
{
    expect({"call", "demo.object", "none"}, 253, "",
           "Command failed: ubus call demo.object none (Method not found)\n");
    expect({"call", "demo.object", "none", "{}"}, 253, "",
           "Command failed: ubus call demo.object none {} (Method not found)\n");
    expect({"-t", "1", "call", "demo.object", "never"}, 249, "",
           "Command failed: ubus call demo.object never (Request timed out)\n");
    expect({"call", "demo.object", "status", "{bad"}, 244, "",
           "Command failed: ubus call demo.object status {bad (Parsing message data failed)\n");
    expect({"call", "demo.object", "status", R"({"code":9})"}, 247, "",
           "Command failed: ubus call demo.object status {\"code\":9} (Unknown error)\n");
    expect({"call", "none", "x"}, 4, "", "Command failed: Not found\n");
    // The text is read before anyone is looked up.
    EXPECT_EQ(ubus({"call", "none", "x", "{bad"}).code, 244);
    // Invalid argument looks like a usage error.
    const Output result = ubus({"call", "demo.object", "status", R"({"code":2})"});
    EXPECT_EQ(result.code, 254);
    EXPECT_NE(result.err.find("(Invalid argument)\n"), std::string::npos);
    EXPECT_NE(result.err.find("Usage: ubus"), std::string::npos);
}

TEST_F(Cli, FailedCallsWithATerminalOrForScripts)
{
    Output result = ubus({"call", "demo.object", "none"}, true);
    EXPECT_EQ(result.code, 3);
    EXPECT_NE(result.err.find("Command failed: Method not found"), std::string::npos);
    result = ubus({"call", "demo.object", "status", R"({"code":2})"}, true);
    EXPECT_EQ(result.code, 2);
    expect({"-S", "call", "demo.object", "none"}, 3, "", "");
    expect({"-S", "call", "demo.object", "status", R"({"code":2})"}, 2, "", "");
    expect({"-S", "call", "demo.object", "status", "{bad"}, 12, "", "");
}

TEST_F(Cli, NegativeStatusOfAProvider)
{
    // As a script sees it: the low byte.
    EXPECT_EQ(ubus({"-S", "call", "demo.object", "status", R"({"code":-1})"}).code, 255);
}

TEST_F(Cli, UsageErrors)
{
    for (const std::vector<std::string> &words :
         std::vector<std::vector<std::string>>{{"call"},
                                               {"call", "a"},
                                               {"call", "a", "b", "c", "d"},
                                               {"list", "a", "b"},
                                               {"send"},
                                               {"wait_for"},
                                               {"send", "a", "b", "c"},
                                               {"no_such_command"}}) {
        const Output result = ubus(words);
        EXPECT_EQ(result.code, 254) << words[0];
        EXPECT_EQ(result.err.find("Usage: ubus"), 0u) << words[0];
        EXPECT_EQ(result.out, "");
    }
    Output result = ubus({});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err.find("Usage: ubus"), 0u);
    result = ubus({"-Z"});
    EXPECT_EQ(result.code, 1);
    result = ubus({"--help"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out.find("Usage: ubus"), 0u);
    EXPECT_EQ(result.err, "");
}

TEST_F(Cli, NoBroker)
{
    broker.stop();
    expect({"list"}, 255, "", "Failed to connect to ubus\n");
    expect({"-S", "list"}, 255, "", "");
}

TEST_F(Cli, Send)
{
    expect({"send", "my.event"}, 0, "", "");
    expect({"send", "ubus.mine"}, 6, "", "Command failed: Permission denied\n");
    expect({"send", "my.event", "{bad"}, 12, "", "Command failed: Parsing message data failed\n");
    expect({"-S", "send", "my.event", "[]"}, 12, "", "");
}

std::string text_of(const std::string &path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST_F(Cli, Listen)
{
    TempDir dir;
    FILE *out = fopen(dir.path("out").c_str(), "w");
    Child listener(command({"listen", "my.*"}), fileno(out), -1);
    fclose(out);
    // Until the listener is there nobody hears.
    EXPECT_TRUE(wait_until([&] {
        ubus({"send", "my.first"});
        return text_of(dir.path("out")).find("{ \"my.first\": {} }\n") == 0;
    }));
    expect({"send", "other"}, 0, "", "");
    expect({"send", "my.last", R"({"k":[1,true]})"}, 0, "", "");
    const std::string last = "{ \"my.last\": {\"k\":[1,true]} }\n";
    EXPECT_TRUE(wait_until([&] {
        const std::string text = text_of(dir.path("out"));
        return text.size() > last.size() && text.substr(text.size() - last.size()) == last;
    }));
    EXPECT_EQ(text_of(dir.path("out")).find("other"), std::string::npos);
    broker.stop();
    EXPECT_EQ(listener.status(), 255);
}

TEST_F(Cli, ListenEndsByItsTime)
{
    expect({"-t", "1", "listen"}, 0, "", "");
    EXPECT_EQ(ubus({"listen", ""}).code, 255);
}

TEST_F(Cli, WaitFor)
{
    expect({"wait_for", "demo.object"}, 0, "", "");
    expect({"-t", "0", "wait_for", "demo.object"}, 0, "", "");
    expect({"-t", "0", "wait_for", "demo.object", "not.yet"}, 7, "", "Command failed: Request timed out\n");
    expect({"-S", "-t", "0", "wait_for", "not.yet"}, 7, "", "");
    Child waiter(command({"-t", "20", "wait_for", "late.one", "demo.object", "late.two"}), -1, -1);
    RawClient owner(broker.socket());
    const Bytes signature = attr_bytes(UBUS_ATTR_SIGNATURE, {});
    ASSERT_EQ(owner.ask_status(
                  message(UBUS_MSG_ADD_OBJECT, 1, 0, attr_string(UBUS_ATTR_OBJPATH, "late.one") + signature)),
              0);
    usleep(50000);
    EXPECT_TRUE(waiter.running());
    ASSERT_EQ(owner.ask_status(
                  message(UBUS_MSG_ADD_OBJECT, 2, 0, attr_string(UBUS_ATTR_OBJPATH, "late.two") + signature)),
              0);
    EXPECT_EQ(waiter.status(), 0);
}

TEST(Ubusd, CommandLine)
{
    Output result = run({tool("ubusd"), "-h"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out.find("Usage: ubusd"), 0u);
    result = run({tool("ubusd"), "-x"});
    EXPECT_EQ(result.code, 1);
    result = run({tool("ubusd"), "-s", "/nonexistent/folder/socket"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("cannot listen on /nonexistent/folder/socket"), std::string::npos);
    result = run({tool("ubusd"), "-s", "/" + std::string(200, 'x')});
    EXPECT_EQ(result.code, 1);
}

} // namespace
