// Messages to a client: at once as far as its socket takes them, the rest from a queue of limited size.
#include "broker.h"
#include "wire.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace broker {

namespace {

// Bytes the socket took; 0 also when it is full or dead. The descriptor goes with the first byte.
size_t write_some(int sock, iovec *parts, size_t count, int fd)
{
    wire::FdControl control;
    msghdr msg = {};

    msg.msg_iov = parts;
    msg.msg_iovlen = count;
    if (fd >= 0) {
        wire::attach_fd(msg, control, fd);
    }
    ssize_t sent;
    do {
        sent = sendmsg(sock, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent > 0 ? static_cast<size_t>(sent) : 0;
}

void enqueue(Client *client, const iovec *parts, size_t count, size_t sent, int *fd)
{
    size_t len = 0;
    for (size_t i = 0; i < count; i++) {
        len += parts[i].iov_len;
    }
    // Half a message cannot be taken back, so it is queued whatever the limit says.
    if (!sent && client->tx_len && client->tx_len + len > max_queue) {
        return;
    }
    auto *out = static_cast<Outgoing *>(malloc(sizeof(Outgoing) + len));
    if (!out) {
        if (sent) {
            // The stream has lost its framing: the client can only start afresh.
            shutdown(client->sock.fd, SHUT_RDWR);
        }
        return;
    }
    char *at = out->bytes;
    for (size_t i = 0; i < count; i++) {
        memcpy(at, parts[i].iov_base, parts[i].iov_len);
        at += parts[i].iov_len;
    }
    out->len = len;
    out->sent = sent;
    out->fd = -1;
    if (fd && !sent) {
        out->fd = *fd;
        *fd = -1;
    }
    list_add_tail(&out->list, &client->tx);
    client->tx_len += len - sent;
    update_interest(client);
}

void free_outgoing(Client *client, Outgoing *out)
{
    client->tx_len -= out->len - out->sent;
    list_del(&out->list);
    if (out->fd >= 0) {
        close(out->fd);
    }
    free(out);
}

} // namespace

void update_interest(Client *client)
{
    unsigned int flags = 0;
    if (!list_empty(&client->tx)) {
        flags |= ULOOP_WRITE;
    }
    // Reading stops during a listing, so that requests do not pile up behind it.
    if (!flags || !client->listing.running) {
        flags |= ULOOP_READ;
    }
    if (client->sock.registered && flags != client->sock.flags) {
        uloop_fd_add(&client->sock, flags);
    }
}

void send_raw(Client *client, const ubus_msghdr &hdr, const blob_attr *body, int *fd)
{
    if (client->leaving) {
        return;
    }
    if (hdr.type != UBUS_MSG_MONITOR) {
        monitor_message(client, hdr, body, true);
    }
    ubus_msghdr wire = hdr;
    wire.seq = cpu_to_be16(hdr.seq);
    wire.peer = cpu_to_be32(hdr.peer);
    iovec parts[] = {{&wire, sizeof(wire)}, {const_cast<blob_attr *>(body), blob_raw_len(body)}};

    size_t sent = 0;
    if (list_empty(&client->tx)) {
        sent = write_some(client->sock.fd, parts, 2, fd ? *fd : -1);
    }
    if (sent < parts[0].iov_len + parts[1].iov_len) {
        enqueue(client, parts, 2, sent, fd);
    }
}

void send_to(Client *client, int type, uint16_t seq, uint32_t peer, const Builder &body, int *fd)
{
    if (!body.sendable()) {
        return;
    }
    ubus_msghdr hdr = {};
    hdr.type = static_cast<uint8_t>(type);
    hdr.seq = seq;
    hdr.peer = peer;
    send_raw(client, hdr, body.head, fd);
}

void send_status(Client *client, const Message &request, int status)
{
    Builder body;
    body.put_u32(UBUS_ATTR_STATUS, static_cast<uint32_t>(status));
    send_to(client, UBUS_MSG_STATUS, request.hdr.seq, request.hdr.peer, body);
}

bool flush_queue(Client *client)
{
    while (!list_empty(&client->tx)) {
        Outgoing *out = list_first_entry(&client->tx, Outgoing, list);
        iovec part = {out->bytes + out->sent, out->len - out->sent};
        const size_t sent = write_some(client->sock.fd, &part, 1, out->fd);
        if (!sent) {
            break;
        }
        if (out->fd >= 0) {
            close(out->fd);
            out->fd = -1;
        }
        out->sent += sent;
        client->tx_len -= sent;
        if (out->sent < out->len) {
            break;
        }
        free_outgoing(client, out);
    }
    update_interest(client);
    return list_empty(&client->tx);
}

void drop_queue(Client *client)
{
    while (!list_empty(&client->tx)) {
        free_outgoing(client, list_first_entry(&client->tx, Outgoing, list));
    }
}

} // namespace broker
