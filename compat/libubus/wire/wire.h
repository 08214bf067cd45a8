// What a message is on the socket, for the broker and its clients alike: a header, then one attribute that
// holds all others; a descriptor may come along.
#pragma once

#include <libubus.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace wire {

constexpr size_t header_len = sizeof(ubus_msghdr);
// From here on the length of the whole message is known.
constexpr size_t prefix_len = header_len + sizeof(blob_attr);

// What has become of the message that is being received.
enum class progress { more, nothing, message, broken };

// How many bytes there must be of a message of which `have` are there: enough to tell its length, then all of
// it. 0 for a length that no message has.
size_t goal(size_t have, const char *body);
inline size_t body_part(size_t have)
{
    return have < header_len ? 0 : have - header_len;
}
// What a result of read_on means, errno being that of the call: more, nothing or broken.
progress step_after(ssize_t got);

// Reads on in a message of which `have` bytes are there: the rest of the header, then up to `body_wanted`
// bytes to `body`, its first byte that is missing. Returns what recvmsg returns. The first descriptor
// that comes is put into `kept_fd` if that is negative, all others are closed.
ssize_t read_on(int sock, ubus_msghdr &hdr, size_t have, char *body, size_t body_wanted, int &kept_fd);

// Makes a descriptor go along with a message that is sent; the control part must last as long.
struct fd_control {
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int))];
};
void attach_fd(msghdr &msg, fd_control &control, int fd);

// The attributes of a message by their numbers, UBUS_ATTR_MAX of them; those of the wrong type count as
// absent.
void parse(blob_attr *msg, blob_attr **attributes);

// The order of uint32_t keys in a tree.
int compare_ids(const void *k1, const void *k2, void *);

} // namespace wire
