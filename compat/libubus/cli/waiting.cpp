// Commands that stay: listen, wait_for.
#include "cli.h"

#include <cstdio>

namespace cli {

namespace {

bool connected = true;

void on_connection_lost(ubus_context *)
{
    connected = false;
    uloop_end();
}

void end_loop(uloop_timeout *)
{
    uloop_end();
}

void print_event(ubus_context *, ubus_event_handler *, const char *name, blob_attr *msg)
{
    char *text = blobmsg_format_json(msg, true);
    printf("{ \"%s\": %s }\n", name, text != nullptr ? text : "");
    fflush(stdout);
    free(text);
}

struct object_wait {
    ubus_event_handler handler; // first, so that the handler's address is the record's
    int missing;
    int count;
    char **names; // null: found
};

void mark_found(object_wait *wait, int index)
{
    if (wait->names[index] != nullptr) {
        wait->names[index] = nullptr;
        wait->missing--;
    }
}

void on_object_added(ubus_context *, ubus_event_handler *handler, const char *, blob_attr *msg)
{
    static const blobmsg_policy policy[] = {{"path", BLOBMSG_TYPE_STRING}};
    auto *wait = reinterpret_cast<object_wait *>(handler);
    blob_attr *path;

    blobmsg_parse_attr(policy, 1, &path, msg);
    if (path == nullptr) {
        return;
    }
    for (int i = 0; i < wait->count; i++) {
        if (wait->names[i] != nullptr && strcmp(wait->names[i], blobmsg_get_string(path)) == 0) {
            mark_found(wait, i);
        }
    }
    if (!wait->missing) {
        uloop_end();
    }
}

} // namespace

int listen(ubus_context *ctx, const cli_options &options, int argc, char **argv)
{
    static char everything[] = "*";
    char *all[] = {everything};
    ubus_event_handler handler = {};
    uloop_timeout timer = {};

    if (!argc) {
        argc = 1;
        argv = all;
    }
    handler.cb = print_event;
    for (int i = 0; i < argc; i++) {
        const int status = ubus_register_event_handler(ctx, &handler, argv[i]);
        if (status) {
            if (!options.simple) {
                fprintf(stderr, "Cannot listen to '%s': %s\n", argv[i], ubus_strerror(status));
            }
            return failed;
        }
    }
    ctx->connection_lost = on_connection_lost;
    ubus_add_uloop(ctx);
    timer.cb = end_loop;
    if (options.timeout_given && options.timeout > 0) {
        uloop_timeout_set(&timer, options.timeout * 1000);
    }
    uloop_run();
    uloop_timeout_cancel(&timer);
    if (!connected && !options.simple) {
        fprintf(stderr, "Connection to ubus lost\n");
    }
    return connected ? 0 : failed;
}

int wait_for(ubus_context *ctx, const cli_options &options, int argc, char **argv)
{
    object_wait wait = {};
    uloop_timeout timer = {};

    if (argc < 1) {
        return usage_error;
    }
    wait.handler.cb = on_object_added;
    wait.names = argv;
    wait.count = argc;
    wait.missing = argc;
    // Listening starts before looking, so that none slips through in between.
    const int status = ubus_register_event_handler(ctx, &wait.handler, "ubus.object.add");
    if (status) {
        return status;
    }
    ctx->connection_lost = on_connection_lost;
    ubus_add_uloop(ctx);
    for (int i = 0; i < argc; i++) {
        uint32_t id = 0;
        if (argv[i] != nullptr && ubus_lookup_id(ctx, argv[i], &id) == 0 && id) {
            mark_found(&wait, i);
        }
    }
    if (wait.missing && connected) {
        timer.cb = end_loop;
        uloop_timeout_set(&timer, options.timeout * 1000);
        uloop_run();
        uloop_timeout_cancel(&timer);
    }
    if (!connected) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    return wait.missing ? UBUS_STATUS_TIMEOUT : UBUS_STATUS_OK;
}

} // namespace cli
