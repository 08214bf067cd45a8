// What users other than root may do.
#include "support.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <unistd.h>

using namespace support;

namespace {

constexpr uid_t nobody = 65534;

class Acl : public ::testing::Test {
protected:
    Acl()
    {
        std::filesystem::create_directory(dir.path("acl"));
        std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
    }
    ~Acl() override { uloop_done(); }

    void grant(const std::string &name, const std::string &json, unsigned int mode = 0644)
    {
        const std::string path = dir.path("acl/" + name);
        std::ofstream(path) << json;
        std::filesystem::permissions(path, std::filesystem::perms(mode));
    }
    void start()
    {
        broker.emplace(std::vector<std::string>{"-A", dir.path("acl")});
        std::filesystem::permissions(std::filesystem::path(broker->socket()).parent_path(),
                                     std::filesystem::perms(0755));
        owner = std::make_unique<RawClient>(broker->socket());
        const auto added = owner->ask(
            message(UBUS_MSG_ADD_OBJECT, 1, 0,
                    attr_string(UBUS_ATTR_OBJPATH, "demo.one") +
                        attr_bytes(UBUS_ATTR_SIGNATURE, from_hex("82000008 00016d00 82000008 00016e00"))));
        object = u32_at(attributes(added.at(0)).at(UBUS_ATTR_OBJID), 0);
    }
    // The result of a request made by a user who is not root.
    int as_nobody(const std::function<int(RawClient &)> &body)
    {
        Child child(std::function<int()>([&] {
            if (setgroups(0, nullptr) || setgid(nobody) || setuid(nobody)) {
                return 100;
            }
            try {
                RawClient client(broker->socket());
                return body(client);
            } catch (const std::exception &error) {
                fprintf(stderr, "%s\n", error.what());
                return 101;
            }
        }));
        return child.status();
    }
    // Called without waiting for an answer: the owner is a mere socket. 50: passed on.
    int call(const std::string &method)
    {
        return as_nobody([&](RawClient &client) {
            client.send(message(UBUS_MSG_INVOKE, 5, object,
                                attr_u32(UBUS_ATTR_OBJID, object) + attr_string(UBUS_ATTR_METHOD, method) +
                                    attr_bytes(UBUS_ATTR_DATA, {})));
            client.send(message(UBUS_MSG_PING, 6, 0));
            const Bytes first = client.receive();
            return first[3] == 6 ? 50 : status_of(first);
        });
    }
    static Bytes event_call(const std::string &method, const Bytes &args)
    {
        return message(UBUS_MSG_INVOKE, 3, 1,
                       attr_u32(UBUS_ATTR_OBJID, 1) + attr_string(UBUS_ATTR_METHOD, method) +
                           attr_bytes(UBUS_ATTR_DATA, args));
    }
    static Bytes text_field(const std::string &name, const std::string &text)
    {
        blob_buf b = {};
        blob_buf_init(&b, 0);
        blobmsg_add_string(&b, name.c_str(), text.c_str());
        const auto *first = static_cast<uint8_t *>(blob_data(b.head));
        Bytes bytes(first, first + blob_len(b.head));
        blob_buf_free(&b);
        return bytes;
    }
    int publish(const std::string &path)
    {
        return as_nobody([&](RawClient &client) {
            return client.ask_status(
                message(UBUS_MSG_ADD_OBJECT, 1, 0, attr_string(UBUS_ATTR_OBJPATH, path)));
        });
    }
    int send_event(const std::string &name)
    {
        return as_nobody([&](RawClient &client) {
            return client.ask_status(
                event_call("send", text_field("id", name) + from_hex("8200000c 00046461 74610000")));
        });
    }
    int listen(const std::string &pattern)
    {
        return as_nobody([&](RawClient &client) {
            const auto added = attributes(client.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0));
            Bytes args = from_hex("85000014 00066f62 6a656374 00000000") + added.at(UBUS_ATTR_OBJID);
            args.resize(20);
            return client.ask_status(event_call("register", args + text_field("pattern", pattern)));
        });
    }
    int subscribe()
    {
        return as_nobody([&](RawClient &client) {
            const auto added = attributes(client.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0));
            return client.ask_status(message(UBUS_MSG_SUBSCRIBE, 2, 0,
                                             attr_bytes(UBUS_ATTR_OBJID, added.at(UBUS_ATTR_OBJID)) +
                                                 attr_u32(UBUS_ATTR_TARGET, object)));
        });
    }
    // Number of methods of the object that are seen; 40 when the object is not.
    int visible_methods(const std::string &path = "")
    {
        return as_nobody([&](RawClient &client) {
            const auto answers = client.ask(message(
                UBUS_MSG_LOOKUP, 1, 0, path.empty() ? Bytes{} : attr_string(UBUS_ATTR_OBJPATH, path)));
            if (status_of(answers.back()) != 0) {
                return 41;
            }
            return answers.size() == 1
                       ? 40
                       : static_cast<int>(attributes(answers[0]).at(UBUS_ATTR_SIGNATURE).size() / 8);
        });
    }
    TempDir dir;
    std::optional<Broker> broker;
    std::unique_ptr<RawClient> owner;
    uint32_t object = 0;
};

TEST_F(Acl, NothingIsGrantedWithoutFiles)
{
    start();
    EXPECT_EQ(call("m"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(visible_methods(), 40);
    EXPECT_EQ(visible_methods("demo.one"), 40);
    EXPECT_EQ(publish("mine"), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(send_event("my.event"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(listen("my.*"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(subscribe(), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(as_nobody([](RawClient &client) {
                  return client.ask_status(message(UBUS_MSG_INVOKE, 1, 3,
                                                   attr_u32(UBUS_ATTR_OBJID, 3) +
                                                       attr_string(UBUS_ATTR_METHOD, "add") +
                                                       attr_bytes(UBUS_ATTR_DATA, {})));
              }),
              UBUS_STATUS_PERMISSION_DENIED);
}

TEST_F(Acl, GrantsByUser)
{
    grant("demo.json",
          R"({"user":"nobody","access":{"demo.*":{"methods":["m"]},"else":{"methods":["*"]}},)"
          R"("publish":["mine","our.*"],"subscribe":["demo.one"],"listen":["my.*"],"send":["my.event"]})");
    start();
    EXPECT_EQ(call("m"), 50);
    EXPECT_EQ(call("n"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(visible_methods(), 1);
    EXPECT_EQ(visible_methods("demo.one"), 1);
    EXPECT_EQ(publish("mine"), 0);
    EXPECT_EQ(publish("our.own"), 0);
    EXPECT_EQ(publish("mine.not"), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(send_event("my.event"), 0);
    EXPECT_EQ(send_event("my.other"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(listen("my.pattern"), 0);
    EXPECT_EQ(listen("*"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(subscribe(), 0);
}

TEST_F(Acl, GrantsByGroup)
{
    grant("group.json", R"({"group":"nogroup","access":{"demo.one":{"methods":["*"]}}})");
    start();
    EXPECT_EQ(call("n"), 50);
    EXPECT_EQ(visible_methods(), 2);
}

TEST_F(Acl, FilesThatOthersCouldHaveWrittenAreLeftOut)
{
    const std::string all = R"({"user":"nobody","access":{"demo.*":{"methods":["*"]}}})";
    grant("group-writable.json", all, 0664);
    grant("world-writable.json", all, 0646);
    grant("foreign.json", all);
    ASSERT_EQ(chown(dir.path("acl/foreign.json").c_str(), nobody, 0), 0);
    grant("foreign-group.json", all);
    ASSERT_EQ(chown(dir.path("acl/foreign-group.json").c_str(), 0, nobody), 0);
    grant("no-suffix", all);
    start();
    EXPECT_EQ(call("m"), UBUS_STATUS_PERMISSION_DENIED);
}

TEST_F(Acl, BrokenFilesDoNoHarm)
{
    grant("a.json", "{");
    grant("b.json", "[]");
    grant("c.json", R"({"user":5,"access":7})");
    grant("d.json", R"({"user":"no-such-user","access":{"*":{"methods":["*"]}}})");
    grant("e.json", R"({"user":"nobody","access":{"demo.one":["m"]},"publish":"mine","send":[1]})");
    grant("f.json", R"({"access":{"*":{"methods":["*"]}}})");
    std::filesystem::create_directory(dir.path("acl/g.json"));
    grant("h.json", R"({"user":"nobody","access":{"demo.one":{"methods":["n"]}}})");
    start();
    EXPECT_EQ(call("m"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(call("n"), 50);
    EXPECT_EQ(publish("mine"), UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(Acl, ReloadOnHangup)
{
    start();
    RawClient watcher(broker->socket());
    const auto receiver =
        attributes(watcher.ask(message(UBUS_MSG_ADD_OBJECT, 1, 0)).at(0)).at(UBUS_ATTR_OBJID);
    Bytes args = from_hex("85000014 00066f62 6a656374 00000000") + receiver;
    ASSERT_EQ(watcher.ask_status(event_call("register", args + text_field("pattern", "ubus.acl.*"))), 0);
    EXPECT_EQ(call("m"), UBUS_STATUS_PERMISSION_DENIED);
    grant("new.json", R"({"user":"nobody","access":{"demo.one":{"methods":["m"]}}})");
    kill(broker->pid(), SIGHUP);
    const Bytes news = watcher.receive();
    EXPECT_EQ(to_hex(attributes(news).at(UBUS_ATTR_DATA)),
              to_hex(from_hex("85000014 00087365 7175656e 63650000 00000001")));
    EXPECT_EQ(call("m"), 50);
    std::filesystem::remove(dir.path("acl/new.json"));
    kill(broker->pid(), SIGHUP);
    watcher.receive();
    EXPECT_EQ(call("m"), UBUS_STATUS_PERMISSION_DENIED);
}

TEST_F(Acl, UserWithoutANameIsNotLetIn)
{
    start();
    Child child(std::function<int()>([&] {
        if (setgroups(0, nullptr) || setgid(54321) || setuid(54321)) {
            return 100;
        }
        RawClient client(broker->socket(), false);
        return client.closed_by_peer() ? 0 : 1;
    }));
    EXPECT_EQ(child.status(), 0);
}

} // namespace
