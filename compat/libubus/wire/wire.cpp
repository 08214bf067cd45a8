#include "wire.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace wire {

namespace {

void keep_one_fd(msghdr &msg, int &kept_fd)
{
    for (cmsghdr *cmsg = CMSG_FIRSTHDR(&msg); cmsg != nullptr; cmsg = CMSG_NXTHDR(&msg, cmsg)) {
        if (cmsg->cmsg_level != SOL_SOCKET || cmsg->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const size_t count = (cmsg->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; i++) {
            int fd;
            memcpy(&fd, CMSG_DATA(cmsg) + i * sizeof(int), sizeof(fd));
            if (kept_fd < 0) {
                kept_fd = fd;
            } else {
                close(fd);
            }
        }
    }
}

} // namespace

size_t goal(size_t have, const char *body)
{
    if (have < prefix_len) {
        return prefix_len;
    }
    const auto *root = reinterpret_cast<const blob_attr *>(body);
    const size_t raw_len = blob_raw_len(root);
    return raw_len < sizeof(blob_attr) || blob_pad_len(root) > UBUS_MAX_MSGLEN ? 0 : header_len + raw_len;
}

progress step_after(ssize_t got)
{
    if (got > 0 || (got < 0 && errno == EINTR)) {
        return progress::more;
    }
    return got < 0 && errno == EAGAIN ? progress::nothing : progress::broken;
}

ssize_t read_on(int sock, ubus_msghdr &hdr, size_t have, char *body, size_t body_wanted, int &kept_fd)
{
    alignas(cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))];
    iovec parts[2];
    msghdr msg = {};

    msg.msg_iov = parts;
    if (have < header_len) {
        parts[msg.msg_iovlen++] = {reinterpret_cast<char *>(&hdr) + have, header_len - have};
    }
    parts[msg.msg_iovlen++] = {body, body_wanted};
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);

    const ssize_t got = recvmsg(sock, &msg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got > 0) {
        keep_one_fd(msg, kept_fd);
    }
    return got;
}

void attach_fd(msghdr &msg, fd_control &control, int fd)
{
    control = {};
    msg.msg_control = control.space;
    msg.msg_controllen = sizeof(control.space);
    cmsghdr *cmsg = CMSG_FIRSTHDR(&msg);
    cmsg->cmsg_level = SOL_SOCKET;
    cmsg->cmsg_type = SCM_RIGHTS;
    cmsg->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(cmsg), &fd, sizeof(fd));
}

void parse(blob_attr *msg, blob_attr **attributes)
{
    static const blob_attr_info info[UBUS_ATTR_MAX] = {
        {BLOB_ATTR_UNSPEC, 0, 0, nullptr}, {BLOB_ATTR_INT32, 0, 0, nullptr},  // -, STATUS
        {BLOB_ATTR_STRING, 0, 0, nullptr}, {BLOB_ATTR_INT32, 0, 0, nullptr},  // OBJPATH, OBJID
        {BLOB_ATTR_STRING, 0, 0, nullptr}, {BLOB_ATTR_INT32, 0, 0, nullptr},  // METHOD, OBJTYPE
        {BLOB_ATTR_NESTED, 0, 0, nullptr}, {BLOB_ATTR_NESTED, 0, 0, nullptr}, // SIGNATURE, DATA
        {BLOB_ATTR_INT32, 0, 0, nullptr},  {BLOB_ATTR_INT8, 0, 0, nullptr},   // TARGET, ACTIVE
        {BLOB_ATTR_INT8, 0, 0, nullptr},   {BLOB_ATTR_NESTED, 0, 0, nullptr}, // NO_REPLY, SUBSCRIBERS
        {BLOB_ATTR_STRING, 0, 0, nullptr}, {BLOB_ATTR_STRING, 0, 0, nullptr}, // USER, GROUP
    };
    blob_parse(msg, attributes, info, UBUS_ATTR_MAX);
}

int compare_ids(const void *k1, const void *k2, void *)
{
    const uint32_t id1 = *static_cast<const uint32_t *>(k1);
    const uint32_t id2 = *static_cast<const uint32_t *>(k2);
    if (id1 == id2) {
        return 0;
    }
    return id1 < id2 ? -1 : 1;
}

} // namespace wire
