#include "netintf/reply.h"

#include "core/result.h"

#include <string.h>

struct blob_buf netintf_reply;

int netintf_bmsg_add_string(const char *key, const char *text)
{
    return blobmsg_add_field(&netintf_reply, BLOBMSG_TYPE_STRING, key, text,
                             static_cast<unsigned>(strlen(text) + 1));
}

int netintf_reply_send(struct ubus_context *ctx, struct ubus_request_data *req)
{
    return ubus_send_reply(ctx, req, netintf_reply.head) == 0 ? status_ok : status_unknown_error;
}
