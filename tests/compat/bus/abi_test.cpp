// Layouts that programs built against the original libraries rely on, as they are where pointers have eight
// bytes.
#include "support.h"

#include <cstddef>

#ifdef __LP64__
static_assert(sizeof(list_head) == 16);
static_assert(sizeof(avl_node) == 56 && offsetof(avl_node, key) == 40 && offsetof(avl_node, balance) == 48);
static_assert(sizeof(avl_tree) == 48);
static_assert(sizeof(uloop_fd) == 16 && offsetof(uloop_fd, fd) == 8 && offsetof(uloop_fd, eof) == 12);
static_assert(offsetof(uloop_fd, error) == 13 && offsetof(uloop_fd, registered) == 14);
static_assert(offsetof(uloop_fd, flags) == 15);
static_assert(sizeof(uloop_timeout) == 48 && offsetof(uloop_timeout, pending) == 16);
static_assert(offsetof(uloop_timeout, cb) == 24 && offsetof(uloop_timeout, time) == 32);
static_assert(sizeof(uloop_process) == 40);
static_assert(sizeof(blob_buf) == 32 && sizeof(blobmsg_policy) == 16);
static_assert(sizeof(ubus_method) == 48 && sizeof(ubus_object_type) == 32);
static_assert(sizeof(ubus_object) == 120 && offsetof(ubus_object, name) == 56 &&
              offsetof(ubus_object, id) == 64);
static_assert(offsetof(ubus_object, path) == 72 && offsetof(ubus_object, type) == 80);
static_assert(offsetof(ubus_object, subscribe_cb) == 88 && offsetof(ubus_object, has_subscribers) == 96);
static_assert(offsetof(ubus_object, methods) == 104 && offsetof(ubus_object, n_methods) == 112);
static_assert(sizeof(ubus_event_handler) == 128 && sizeof(ubus_object_data) == 24);
static_assert(sizeof(ubus_context) == 344 && offsetof(ubus_context, sock) == 80);
static_assert(offsetof(ubus_context, local_id) == 144 && offsetof(ubus_context, connection_lost) == 160);
static_assert(offsetof(ubus_context, monitor_cb) == 168);
static_assert(sizeof(ubus_request_data) == 56 && offsetof(ubus_request_data, acl) == 16);
static_assert(offsetof(ubus_request_data, deferred) == 40);
static_assert(sizeof(ubus_request) == 104);
#endif
static_assert(sizeof(blob_attr) == 4 && sizeof(blobmsg_hdr) == 2 && sizeof(ubus_msghdr) == 8);

namespace {

TEST(Abi, TypeNumbers)
{
    EXPECT_EQ(BLOBMSG_TYPE_ARRAY, 1);
    EXPECT_EQ(BLOBMSG_TYPE_TABLE, 2);
    EXPECT_EQ(BLOBMSG_TYPE_STRING, 3);
    EXPECT_EQ(BLOBMSG_TYPE_INT64, 4);
    EXPECT_EQ(BLOBMSG_TYPE_INT32, 5);
    EXPECT_EQ(BLOBMSG_TYPE_INT16, 6);
    EXPECT_EQ(BLOBMSG_TYPE_BOOL, 7);
    EXPECT_EQ(BLOBMSG_TYPE_DOUBLE, 8);
    EXPECT_EQ(BLOBMSG_TYPE_LAST, 8);
    EXPECT_EQ(BLOBMSG_CAST_INT64, 9);
    EXPECT_EQ(__UBUS_MSG_LAST, 12);
    EXPECT_EQ(UBUS_ATTR_MAX, 14);
    EXPECT_EQ(__UBUS_STATUS_LAST, 14);
}

TEST(Abi, HeaderLengthByNameLength)
{
    const int expected[] = {4, 4, 8, 8, 8, 8, 12, 12, 12, 12, 16, 16, 16, 16};
    for (unsigned int len = 0; len < std::size(expected); len++) {
        EXPECT_EQ(blobmsg_hdrlen(len), expected[len]) << len;
    }
}

int never(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return UBUS_STATUS_OK;
}

TEST(Abi, InitialisersOfMethodsAndTypes)
{
    static const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_STRING}, {"b", BLOBMSG_TYPE_INT32}};
    static const ubus_method methods[] = {
        UBUS_METHOD("plain", never, policy), UBUS_METHOD_MASK("masked", never, policy, 2),
        UBUS_METHOD_TAG("tagged", never, policy, 4), UBUS_METHOD_NOARG("bare", never),
        UBUS_METHOD_TAG_NOARG("bare, tagged", never, 1)};
    static const ubus_object_type type = UBUS_OBJECT_TYPE("t", methods);
    const struct {
        unsigned long mask;
        unsigned long tags;
        int n_policy;
    } expected[] = {{0, 0, 2}, {2, 0, 2}, {0, 4, 2}, {0, 0, 0}, {0, 1, 0}};
    ASSERT_EQ(type.n_methods, 5);
    EXPECT_EQ(type.methods, methods);
    EXPECT_EQ(type.id, 0u);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(methods[i].handler, never) << methods[i].name;
        EXPECT_EQ(methods[i].mask, expected[i].mask) << methods[i].name;
        EXPECT_EQ(methods[i].tags, expected[i].tags) << methods[i].name;
        EXPECT_EQ(methods[i].n_policy, expected[i].n_policy) << methods[i].name;
        EXPECT_EQ(methods[i].policy, expected[i].n_policy ? policy : nullptr) << methods[i].name;
    }
}

TEST(Abi, StatusTexts)
{
    const char *texts[] = {"Success",
                           "Invalid command",
                           "Invalid argument",
                           "Method not found",
                           "Not found",
                           "No response",
                           "Permission denied",
                           "Request timed out",
                           "Operation not supported",
                           "Unknown error",
                           "Connection failed",
                           "Out of memory",
                           "Parsing message data failed",
                           "System error"};
    for (int i = 0; i < 14; i++) {
        EXPECT_STREQ(ubus_strerror(i), texts[i]);
    }
    EXPECT_STREQ(ubus_strerror(14), "Unknown error: 14");
    EXPECT_STREQ(ubus_strerror(-3), "Unknown error: -3");
}

} // namespace
