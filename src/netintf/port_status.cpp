// Bus method "status": the link state of all eight switch ports, as the kernel gives it.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/reply.h"
#include "platform/board.h"

namespace {

constexpr uint32_t status_port_count = 8;

// The parts of a port's status word, in the order in which the reply lists them.
struct status_part {
    const char *name;
    uint32_t shift;
    uint32_t mask;
};

constexpr status_part status_parts[] = {
    {"link", 0, 0x1},
    {"speed", 1, 0x3},
    {"duplex", 3, 0x1},
};

// False when memory is exhausted.
bool reply_fill(const uint32_t (&words)[status_port_count])
{
    if (blob_buf_init(&netintf_reply, BLOBMSG_TYPE_TABLE) != 0) {
        return false;
    }
    for (const status_part &part : status_parts) {
        void *array = blobmsg_open_array(&netintf_reply, part.name);
        if (array == nullptr) {
            return false;
        }
        for (const uint32_t word : words) {
            if (blobmsg_add_u32(&netintf_reply, nullptr, (word >> part.shift) & part.mask) != 0) {
                return false;
            }
        }
        blobmsg_close_array(&netintf_reply, array);
    }
    return true;
}

} // namespace

int netintf_ubus_status(struct ubus_context *ctx, struct ubus_object *, struct ubus_request_data *req,
                        const char *, struct blob_attr *)
{
    uint32_t words[status_port_count] = {};
    uint32_t length = 0;
    if (knl_send_and_wait_response(knl_port_status, nullptr, 0, words, sizeof(words), &length) != 0) {
        NET_ERROR("get port info error\n");
        return handed_through(rv_fail);
    }
    if (!reply_fill(words)) {
        return status_unknown_error;
    }
    ubus_send_reply(ctx, req, netintf_reply.head);
    return status_ok;
}
