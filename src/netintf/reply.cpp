#include "netintf/reply.h"

#include <string.h>

struct blob_buf netintf_reply;

int netintf_bmsg_add_string(const char *key, const char *text)
{
    return blobmsg_add_field(&netintf_reply, BLOBMSG_TYPE_STRING, key, text,
                             static_cast<unsigned>(strlen(text) + 1));
}
