// Sending a message, as a whole, to the broker.
#include "internal.h"
#include "wire.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// A broker that takes nothing for this long is as good as gone.
constexpr int stalled_ms = 10000;

void skip(msghdr &msg, size_t sent)
{
    while (sent && msg.msg_iovlen) {
        iovec &part = msg.msg_iov[0];
        if (sent < part.iov_len) {
            part.iov_base = static_cast<char *>(part.iov_base) + sent;
            part.iov_len -= sent;
            return;
        }
        sent -= part.iov_len;
        msg.msg_iov++;
        msg.msg_iovlen--;
    }
}

bool wait_writable(int fd)
{
    pollfd waiting = {fd, POLLOUT, 0};
    int ready;
    do {
        ready = poll(&waiting, 1, stalled_ms);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

bool send_all(int sock, iovec *parts, size_t count, int fd)
{
    msghdr msg = {};
    wire::fd_control control;

    msg.msg_iov = parts;
    msg.msg_iovlen = static_cast<decltype(msg.msg_iovlen)>(count); // another type in each C library
    if (fd >= 0) {
        wire::attach_fd(msg, control, fd);
    }
    while (msg.msg_iovlen) {
        const ssize_t sent = sendmsg(sock, &msg, MSG_NOSIGNAL);
        if (sent >= 0) {
            skip(msg, static_cast<size_t>(sent));
            // The descriptor goes with the first byte only.
            msg.msg_control = nullptr;
            msg.msg_controllen = 0;
        } else if (errno == EAGAIN) {
            if (!wait_writable(sock)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

namespace bus {

int send_message(ubus_context *ctx, const blob_attr *msg, int type, uint16_t seq, uint32_t peer, int fd)
{
    ubus_msghdr hdr = {};
    hdr.type = static_cast<uint8_t>(type);
    hdr.seq = cpu_to_be16(seq);
    hdr.peer = cpu_to_be32(peer);
    iovec parts[] = {{&hdr, sizeof(hdr)}, {const_cast<blob_attr *>(msg), blob_raw_len(msg)}};

    const bool sent = send_all(ctx->sock.fd, parts, 2, fd);
    if (fd >= 0) {
        close(fd);
    }
    if (!sent) {
        // The broker may have the first part of a message: nothing can follow on this connection. Shut down,
        // it shows its end to a loop that watches it.
        shutdown(ctx->sock.fd, SHUT_RDWR);
        ctx->sock.eof = true;
        return -1;
    }
    return 0;
}

} // namespace bus
