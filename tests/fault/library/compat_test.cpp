// The stand-ins for the bus and configuration libraries, by themselves. They report by their results only.
#include "bus_world.h"
#include "conversation.h"
#include "sweep.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libubus.h>
#include <sys/socket.h>
#include <uci.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

// The attribute [[fallthrough]] of the standard headers must not become libubox's macro.
#undef fallthrough

namespace {

class StandIn : public SandboxTest {};

constexpr const char *json =
    R"({"a":1,"b":"text \" with \u00e4","c":[1,"two",{"three":true}],"d":{"e":-5000000000,"f":1.5},"g":null})";

// A caller that hears nothing waits for ever.
TEST_F(StandIn, AStatusNeedsNoMemory)
{
    seam::prepare();
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ubus_context server = {};
    server.sock.fd = ends[0];
    ubus_request_data request = {};
    request.fd = -1;
    request.object = 7;
    seam::count_calls(getpid());
    ubus_complete_deferred_request(&server, &request, UBUS_STATUS_UNKNOWN_ERROR);
    seam::disarm();
    for (const char *call : {"malloc", "calloc", "realloc"}) {
        EXPECT_EQ(seam::calls(call), 0U) << call;
    }
    const unsigned char wanted[] = {0,
                                    UBUS_MSG_STATUS,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0,
                                    20,
                                    UBUS_ATTR_STATUS,
                                    0,
                                    0,
                                    8,
                                    0,
                                    0,
                                    0,
                                    UBUS_STATUS_UNKNOWN_ERROR,
                                    UBUS_ATTR_OBJID,
                                    0,
                                    0,
                                    8,
                                    0,
                                    0,
                                    0,
                                    7};
    unsigned char got[64];
    ASSERT_EQ(read(ends[1], got, sizeof(got)), static_cast<ssize_t>(sizeof(wanted)));
    EXPECT_EQ(memcmp(got, wanted, sizeof(wanted)), 0);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(StandIn, Messages)
{
    static char text[256];
    Operation convert{.name = "JSON into a message and back",
                      .prepare = [] { text[0] = '\0'; },
                      .run =
                          [] {
                              blob_buf buffer = {};
                              char *back = nullptr;
                              if (blob_buf_init(&buffer, 0) == 0 &&
                                  blobmsg_add_json_from_string(&buffer, json)) {
                                  back = blobmsg_format_json_indent(buffer.head, true, 0);
                              }
                              snprintf(text, sizeof text, "%s", back ? back : "");
                              free(back);
                              blob_buf_free(&buffer);
                              return back ? 0 : -1;
                          },
                      .state = [] { return std::string(text); },
                      .reports = false};
    sweep(convert);
    static char long_text[3000];
    memset(long_text, 'x', sizeof long_text - 1);
    Operation build = convert;
    build.name = "a message that grows";
    build.run = [] {
        blob_buf buffer = {};
        bool good = blob_buf_init(&buffer, 0) == 0;
        void *table = good ? blobmsg_open_table(&buffer, "table") : nullptr;
        void *list = table ? blobmsg_open_array(&buffer, "list") : nullptr;
        good = list != nullptr;
        for (int i = 0; good && i < 4; i++) {
            good = blobmsg_add_string(&buffer, nullptr, long_text) == 0;
        }
        if (list) {
            blobmsg_close_array(&buffer, list);
        }
        if (table) {
            blobmsg_close_table(&buffer, table);
        }
        good = good && blobmsg_add_u32(&buffer, "number", 7) == 0;
        blob_attr *copy = good ? blob_memdup(buffer.head) : nullptr;
        bool same = copy && blob_attr_equal(copy, buffer.head);
        free(copy);
        blob_buf_free(&buffer);
        return same ? 0 : -1;
    };
    sweep(build);
}

TEST_F(StandIn, Configuration)
{
    write_file("/etc/config/network", "package network\nconfig interface lan\n\toption ip '10.0.0.1'\n"
                                      "\tlist dns a\n\tlist dns b\nconfig interface\n\toption ip x\n");
    write_file("/tmp/.uci/network", "network.lan.mtu='1400'\n-network.lan.ip\n|network.lan.dns='c'\n");
    Operation load{.name = "uci_load with a delta",
                   .prepare = [] {},
                   .run =
                       [] {
                           uci_context *ctx = uci_alloc_context();
                           if (!ctx) {
                               return -1;
                           }
                           char name[] = "network.lan.mtu";
                           uci_ptr place = {};
                           int code = uci_lookup_ptr(ctx, &place, name, true);
                           bool there = code == UCI_OK && place.o && !strcmp(place.o->v.string, "1400");
                           uci_free_context(ctx);
                           return code == UCI_OK && !there ? -2 : code;
                       },
                   .reports = false,
                   // A lock that is waited for is never refused because somebody has it.
                   .excepted =
                       [](const seam::Fault &fault) {
                           return !strcmp(fault.call, "flock") && fault.error == EWOULDBLOCK;
                       }};
    sweep(load);
    Operation list = load;
    list.name = "uci_list_configs";
    list.run = [] {
        uci_context *ctx = uci_alloc_context();
        if (!ctx) {
            return -1;
        }
        char **names = nullptr;
        int code = uci_list_configs(ctx, &names);
        free(names);
        uci_free_context(ctx);
        return code;
    };
    sweep(list);
}

TEST_F(StandIn, Conversation)
{
    Broker broker;
    sweep({.name = "the bus library, both ends of a conversation",
           .prepare = [] {},
           .run = converse,
           .reports = false});
}

} // namespace
