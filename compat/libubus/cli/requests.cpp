// Commands that ask once: list, call, send.
#include "cli.h"

#include <cstdio>
#include <unistd.h>

namespace cli {

namespace {

const char *argument_type(void *, blob_attr *attr)
{
    if (blobmsg_type(attr) != BLOBMSG_TYPE_INT32) {
        return nullptr;
    }
    switch (blobmsg_get_u32(attr)) {
    case BLOBMSG_TYPE_ARRAY:
        return "\"Array\"";
    case BLOBMSG_TYPE_TABLE:
        return "\"Table\"";
    case BLOBMSG_TYPE_STRING:
        return "\"String\"";
    case BLOBMSG_TYPE_INT32:
        return "\"Integer\"";
    case BLOBMSG_TYPE_BOOL:
        return "\"Boolean\"";
    default:
        return "\"(unknown)\"";
    }
}

void print_object(ubus_context *, ubus_object_data *object, void *priv)
{
    const auto &options = *static_cast<const cli_options *>(priv);
    if (options.simple || !options.verbose) {
        printf("%s\n", object->path);
        return;
    }
    printf("'%s' @%08x\n", object->path, object->id);
    blob_attr *method;
    size_t rem;
    blob_for_each_attr(method, object->signature, rem)
    {
        char *text = blobmsg_format_json_with_cb(method, false, argument_type, nullptr, -1);
        printf("\t%s\n", text != nullptr ? text : "");
        free(text);
    }
}

void print_reply(ubus_request *req, int, blob_attr *msg)
{
    const auto &options = *static_cast<const cli_options *>(req->priv);
    char *text = blobmsg_format_json_indent(msg, true, options.simple ? -1 : 0);
    printf("%s\n", text != nullptr ? text : "");
    free(text);
}

int invoke(ubus_context *ctx, const cli_options &options, const char *object, const char *method,
           const char *json, bool *found)
{
    scoped_buffer args;
    uint32_t id = 0;

    *found = true;
    if (json != nullptr && !blobmsg_add_json_from_string(&args, json)) {
        return UBUS_STATUS_PARSE_ERROR;
    }
    const int status = ubus_lookup_id(ctx, object, &id);
    if (status) {
        *found = false;
        return status;
    }
    return ubus_invoke(ctx, id, method, args.head, print_reply, const_cast<cli_options *>(&options),
                       options.timeout * 1000);
}

} // namespace

int list(ubus_context *ctx, const cli_options &options, int argc, char **argv)
{
    if (argc > 1) {
        return usage_error;
    }
    return ubus_lookup(ctx, argc ? argv[0] : nullptr, print_object, const_cast<cli_options *>(&options));
}

int call(ubus_context *ctx, const cli_options &options, int argc, char **argv)
{
    if (argc < 2 || argc > 3) {
        return usage_error;
    }
    bool found;
    const int status = invoke(ctx, options, argv[0], argv[1], argc == 3 ? argv[2] : nullptr, &found);
    // Logs of scripts get the whole command, and a negative code. What this does to status 2, which then
    // looks like a usage error, is known to the scripts that exist.
    if (status && found && !options.simple && !isatty(STDERR_FILENO)) {
        fprintf(stderr, "Command failed: ubus call");
        for (int i = 0; i < argc; i++) {
            fprintf(stderr, " %s", argv[i]);
        }
        fprintf(stderr, " (%s)\n", ubus_strerror(status));
        return -status;
    }
    return status;
}

int send(ubus_context *ctx, const cli_options &, int argc, char **argv)
{
    scoped_buffer data;

    if (argc < 1 || argc > 2) {
        return usage_error;
    }
    if (argc == 2 && !blobmsg_add_json_from_string(&data, argv[1])) {
        return UBUS_STATUS_PARSE_ERROR;
    }
    return ubus_send_event(ctx, argv[0], data.head);
}

} // namespace cli
