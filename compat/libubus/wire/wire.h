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

// The state of the message that is being received.
enum class progress { more, nothing, message, broken };

// The next length to receive up to, when `have` bytes have arrived: the prefix that holds the length, then
// the whole message. 0 for a length that no message has.
size_t goal(size_t have, const char *body);
inline size_t body_part(size_t have)
{
    return have < header_len ? 0 : have - header_len;
}
// The meaning of a result of read_on with its errno: more, nothing or broken.
progress step_after(ssize_t got);

// Receives more of a message of which `have` bytes have arrived: the rest of the header, then up to
// `body_wanted` bytes, stored at `body`. Returns the result of recvmsg. `kept_fd` takes the first descriptor
// received, if it is negative; all others are closed.
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
