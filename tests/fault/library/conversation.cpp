#include "conversation.h"

#include <libubus.h>

namespace {

// An object and a caller that listens too, on connections of their own in one loop.
struct Conversation {
    ubus_context server = {};
    ubus_context caller = {};
    bool served = false;
    bool calling = false;
    unsigned heard = 0;
    unsigned replies = 0;
    bool complete = false;
    int status = -1;
};
Conversation *now = nullptr;

int on_ask(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    blob_buf answer = {};
    blob_buf_init(&answer, 0);
    int error = blobmsg_add_u32(&answer, "answer", 42);
    error = error ? error : ubus_send_reply(ctx, request, answer.head);
    blob_buf_free(&answer);
    return error ? UBUS_STATUS_UNKNOWN_ERROR : 0;
}

void on_event(ubus_context *, ubus_event_handler *, const char *, blob_attr *)
{
    now->heard++;
}

void turn_until(const bool &condition)
{
    for (int turn = 0; turn < 60 && !condition; turn++) {
        uloop_run_timeout(5);
    }
}

} // namespace

int converse()
{
    Conversation conversation;
    now = &conversation;
    ubus_method method = {};
    method.name = "ask";
    method.handler = on_ask;
    ubus_object_type type = {};
    type.name = "talker";
    type.methods = &method;
    type.n_methods = 1;
    ubus_object object = {};
    object.name = "talker";
    object.type = &type;
    object.methods = &method;
    object.n_methods = 1;
    ubus_event_handler events = {};
    events.cb = on_event;
    ubus_request request = {};
    uint32_t id = 0;
    blob_buf nothing = {};

    conversation.served = ubus_connect_ctx(&conversation.server, nullptr) == 0;
    conversation.calling = conversation.served && ubus_connect_ctx(&conversation.caller, nullptr) == 0;
    bool good = conversation.calling && blob_buf_init(&nothing, 0) == 0;
    if (good) {
        conversation.server.connection_lost = [](ubus_context *) {};
        conversation.caller.connection_lost = [](ubus_context *) {};
        ubus_add_uloop(&conversation.server);
        ubus_add_uloop(&conversation.caller);
    }
    good = good && ubus_add_object(&conversation.server, &object) == 0;
    good = good && ubus_lookup_id(&conversation.caller, "talker", &id) == 0;
    good = good && ubus_register_event_handler(&conversation.caller, &events, "told") == 0;
    if (good && ubus_invoke_async(&conversation.caller, id, "ask", nothing.head, &request) == 0) {
        request.data_cb = [](ubus_request *, int, blob_attr *) { now->replies++; };
        request.complete_cb = [](ubus_request *, int status) {
            now->complete = true;
            now->status = status;
        };
        ubus_complete_request_async(&conversation.caller, &request);
        turn_until(conversation.complete);
        if (!conversation.complete) {
            ubus_abort_request(&conversation.caller, &request);
        }
    }
    good = good && conversation.status == 0 && conversation.replies == 1;
    good = good && ubus_send_event(&conversation.server, "told", nothing.head) == 0;
    for (int turn = 0; good && turn < 60 && conversation.heard < 1; turn++) {
        uloop_run_timeout(5);
    }
    good = good && conversation.heard == 1 &&
           ubus_unregister_event_handler(&conversation.caller, &events) == 0 &&
           ubus_remove_object(&conversation.server, &object) == 0;
    if (conversation.calling) {
        ubus_shutdown(&conversation.caller);
    }
    if (conversation.served) {
        ubus_shutdown(&conversation.server);
    }
    blob_buf_free(&nothing);
    uloop_done();
    return good ? 0 : -1;
}
