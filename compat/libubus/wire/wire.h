// What a message is on the socket, for the broker and its clients alike: a header, then one attribute that
// holds all others; a descriptor may come along.
#pragma once

#include <libubus.h>
#include <sys/types.h>

namespace wire {

constexpr size_t header_len = sizeof(ubus_msghdr);
// From here on the length of the whole message is known.
constexpr size_t prefix_len = header_len + sizeof(blob_attr);

// Reads on in a message of which `have` bytes are there: the rest of the header, then up to `body_wanted`
// bytes to `body`, its first byte that is missing. Returns what recvmsg returns. The first descriptor
// that comes is put into `kept_fd` if that is negative, all others are closed.
ssize_t read_on(int sock, ubus_msghdr &hdr, size_t have, char *body, size_t body_wanted, int &kept_fd);

// The attributes of a message by their numbers, UBUS_ATTR_MAX of them; those of the wrong type count as
// absent.
void parse(blob_attr *msg, blob_attr **attributes);

} // namespace wire
