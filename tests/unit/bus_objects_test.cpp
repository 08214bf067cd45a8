// The bus objects as data: what other programs find on the bus.

#include "core/bus_objects.h"
#include "daemon_test.h"

namespace unit {
namespace {

constexpr auto text_field = BLOBMSG_TYPE_STRING;
constexpr auto number_field = BLOBMSG_TYPE_INT32;
constexpr auto list_field = BLOBMSG_TYPE_ARRAY;

struct Field {
    std::string name;
    enum blobmsg_type type;
};

struct Method {
    std::string name;
    std::vector<Field> policy;
};

struct Object {
    std::string name;
    std::string type;
    std::vector<Method> methods;
};

const std::vector<Field> interface_policy = {
    {"intf", text_field},      {"old_intf", text_field},  {"proto", text_field},     {"ipaddr", text_field},
    {"netmask", text_field},   {"gateway", text_field},   {"defrt_pri", text_field}, {"mac", text_field},
    {"vlanid1", number_field}, {"vlanid2", number_field}, {"username", text_field},  {"password", text_field},
    {"server", text_field},
};

const std::vector<Field> route_policy = {
    {"name", text_field},    {"line", text_field},    {"dstaddr", text_field},
    {"netmask", text_field}, {"gateway", text_field}, {"metric", text_field},
};

const std::vector<Object> expected_objects = {
    {"ivarode.intf",
     "netintf",
     {{"port_add", {{"name", text_field}}},
      {"port_del", {{"name", text_field}}},
      {"port_dump", {{"port", number_field}}},
      {"add", interface_policy},
      {"del", {{"intf", list_field}}},
      {"enable", {{"intf", list_field}, {"enable", number_field}}},
      {"config", interface_policy},
      {"status", {}},
      {"statist", {}}}},
    {"ivarode.pppauth",
     "netauth",
     {{"notify",
       {{"type", text_field},
        {"username", text_field},
        {"action", text_field},
        {"ipaddr", text_field},
        {"dial_mac", text_field},
        {"dial_ip", text_field}}}}},
    {"ivarode.route",
     "routeset",
     {{"add", route_policy},
      {"del", {{"name", list_field}}},
      {"edit", route_policy},
      {"enable", {{"name", list_field}, {"enable", number_field}}}}},
    {"ivarode.pppuser",
     "pppuser",
     {{"add",
       {{"username", text_field},
        {"provider", text_field},
        {"password", text_field},
        {"ipaddr", text_field}}},
      {"del", {{"username", text_field}, {"provider", text_field}}}}},
    {"ivarode.run", "ivarode", {{"run", {}}}},
};

using BusObjects = DaemonTest;

void expect_policy(const ubus_method &method, const std::vector<Field> &policy, const std::string &what)
{
    ASSERT_EQ(method.n_policy, static_cast<int>(policy.size())) << what;
    for (size_t i = 0; i < policy.size(); i++) {
        EXPECT_EQ(method.policy[i].name, policy[i].name) << what;
        EXPECT_EQ(method.policy[i].type, policy[i].type) << what << " " << policy[i].name;
    }
}

TEST_F(BusObjects, AreTheseInThisOrder)
{
    ASSERT_EQ(handed.objects.size(), expected_objects.size());
    for (size_t i = 0; i < expected_objects.size(); i++) {
        const ubus_object &object = *handed.objects[i];
        const Object &expected = expected_objects[i];
        EXPECT_EQ(object.name, expected.name);
        ASSERT_NE(object.type, nullptr);
        EXPECT_EQ(object.type->name, expected.type);
        EXPECT_EQ(object.id, 0U);
        EXPECT_EQ(object.type->id, 0U);
        EXPECT_EQ(object.methods, object.type->methods);
        ASSERT_EQ(object.n_methods, static_cast<int>(expected.methods.size())) << expected.name;
        EXPECT_EQ(object.n_methods, object.type->n_methods);
        for (size_t m = 0; m < expected.methods.size(); m++) {
            const ubus_method &method = object.methods[m];
            const std::string what = expected.name + " " + expected.methods[m].name;
            EXPECT_EQ(method.name, expected.methods[m].name) << what;
            EXPECT_NE(method.handler, nullptr) << what;
            EXPECT_EQ(method.mask, 0UL) << what;
            EXPECT_EQ(method.tags, 0UL) << what;
            expect_policy(method, expected.methods[m].policy, what);
        }
    }
}

TEST_F(BusObjects, AddAndConfigShareOnePolicyAndSoDoAddAndEdit)
{
    const ubus_method *intf = handed.objects[0]->methods;
    EXPECT_EQ(intf[3].policy, intf[6].policy);
    const ubus_method *route = handed.objects[2]->methods;
    EXPECT_EQ(route[0].policy, route[2].policy);
}

TEST_F(BusObjects, AreRegisteredInOneCall)
{
    EXPECT_EQ(ivarode_ubus_init(), 0);
    expect_trace({"ubuslib_invoke_init(1, 5)"});
    fail("ubuslib_invoke_init(");
    EXPECT_EQ(ivarode_ubus_init(), -11);
    expect_trace({"ubuslib_invoke_init(1, 5)"});
}

TEST_F(BusObjects, ExitPassesItsArgumentsOnAndSucceeds)
{
    EXPECT_EQ(ivarode_ubus_exit(7, handed.objects.data(), 3), 0);
    fail("ubuslib_invoke_exit(");
    EXPECT_EQ(ivarode_ubus_exit(1, handed.objects.data(), 5), 0);
    expect_trace({"ubuslib_invoke_exit(7, objects, 3)", "ubuslib_invoke_exit(1, objects, 5)"});
}

TEST_F(BusObjects, RunAnswersAndDoesNothing)
{
    EXPECT_EQ(call("ivarode.run", "run"), 0);
    EXPECT_EQ(call("ivarode.run", "run", Message().text("any", "thing").number("x", 1)), 0);
    expect_quiet_trace({});
}

} // namespace
} // namespace unit
