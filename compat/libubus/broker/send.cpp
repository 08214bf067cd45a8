// Messages to a client: at once as far as its socket takes them, the rest from a queue of limited size.
#include "broker.h"
#include "wire.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace broker {

client_turn turn = {};

namespace {

// The account that pays for a message to a client; none for a copy to a monitor.
user_account *payer_of(const bus_client *client, int type)
{
    if (client->account != nullptr || type == UBUS_MSG_MONITOR) {
        return client->account;
    }
    return turn.account;
}

resource_cost cost_of(size_t len, int fd)
{
    return {.descriptors = fd >= 0 ? 1U : 0U, .bytes = sizeof(outgoing_message) + len};
}

// Bytes the socket took; 0 also when it is full or dead. The descriptor goes with the first byte.
size_t write_some(int sock, iovec *parts, size_t count, int fd)
{
    wire::fd_control control;
    msghdr msg = {};

    msg.msg_iov = parts;
    msg.msg_iovlen = static_cast<decltype(msg.msg_iovlen)>(count); // another type in each C library
    if (fd >= 0) {
        wire::attach_fd(msg, control, fd);
    }
    ssize_t sent;
    do {
        sent = sendmsg(sock, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent > 0 ? static_cast<size_t>(sent) : 0;
}

// The descriptor has gone with the first byte, or goes nowhere.
void release_descriptor(outgoing_message *out)
{
    if (out->fd >= 0) {
        close(out->fd);
        out->fd = -1;
        discharge(out->payer, {.descriptors = 1});
    }
}

void free_outgoing(bus_client *client, outgoing_message *out)
{
    client->tx_len -= out->len - out->sent;
    list_del(&out->list);
    release_descriptor(out);
    discharge(out->payer, cost_of(out->len, -1));
    free(out);
}

// Takes over the cost and the descriptor; false without memory.
bool enqueue(bus_client *client, user_account *payer, const iovec *parts, size_t len, size_t sent, int *fd)
{
    auto *out = static_cast<outgoing_message *>(malloc(sizeof(outgoing_message) + len));
    if (out == nullptr) {
        return false;
    }
    memcpy(out->bytes, parts[0].iov_base, parts[0].iov_len);
    memcpy(out->bytes + parts[0].iov_len, parts[1].iov_base, parts[1].iov_len);
    out->payer = payer;
    out->len = len;
    out->sent = sent;
    out->fd = -1;
    if (fd != nullptr) {
        out->fd = *fd;
        *fd = -1;
    }
    if (sent) {
        release_descriptor(out);
    }
    list_add_tail(&out->list, &client->tx);
    client->tx_len += len - sent;
    update_interest(client);
    return true;
}

} // namespace

void update_interest(bus_client *client)
{
    unsigned int flags = ULOOP_ERROR_CB;
    if (!list_empty(&client->tx) || client->listing.running) {
        flags |= ULOOP_WRITE;
    }
    // Reading stops during a listing, so that requests do not pile up behind it.
    if (!client->listing.running) {
        flags |= ULOOP_READ;
    }
    if (client->sock.registered && flags != client->sock.flags) {
        uloop_fd_add(&client->sock, flags);
    }
}

bool has_room(const bus_client *client, size_t len)
{
    return list_empty(&client->tx) ||
           client->tx_len + len <= (turn.account != nullptr ? max_queue : 2 * max_queue);
}

bool send_raw(bus_client *client, const ubus_msghdr &hdr, const blob_attr *body, int *fd)
{
    const size_t len = wire::header_len + blob_raw_len(body);
    user_account *payer = payer_of(client, hdr.type);
    const resource_cost cost = cost_of(len, fd != nullptr ? *fd : -1);

    turn.work++;
    if (client->leaving || !has_room(client, len)) {
        return false;
    }
    // What the socket takes as a whole costs nothing. Half a message cannot be taken back: a client without
    // means is cut off then, but root never for a sender's want of them.
    const bool paid = charge(payer, cost);
    if (!paid && (client->account == nullptr || !list_empty(&client->tx))) {
        return false;
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
        sent = write_some(client->sock.fd, parts, 2, fd != nullptr ? *fd : -1);
    }
    if (sent < len && paid && enqueue(client, payer, parts, len, sent, fd)) {
        return true;
    }
    if (paid) {
        discharge(payer, cost);
    }
    if (sent > 0 && sent < len) {
        // The stream has lost its framing: the client can only start again.
        shutdown(client->sock.fd, SHUT_RDWR);
    }
    return sent == len;
}

bool send_to(bus_client *client, int type, uint16_t seq, uint32_t peer, const message_builder &body, int *fd)
{
    if (!body.sendable()) {
        return false;
    }
    ubus_msghdr hdr = {};
    hdr.type = static_cast<uint8_t>(type);
    hdr.seq = seq;
    hdr.peer = peer;
    return send_raw(client, hdr, body.head, fd);
}

void send_status(bus_client *client, const received_request &request, int status)
{
    message_builder body;
    body.put_u32(UBUS_ATTR_STATUS, static_cast<uint32_t>(status));
    send_to(client, UBUS_MSG_STATUS, request.hdr.seq, request.hdr.peer, body);
}

bool flush_queue(bus_client *client)
{
    while (!list_empty(&client->tx)) {
        outgoing_message *out = list_first_entry(&client->tx, outgoing_message, list);
        iovec part = {out->bytes + out->sent, out->len - out->sent};
        const size_t sent = write_some(client->sock.fd, &part, 1, out->fd);
        if (!sent) {
            break;
        }
        release_descriptor(out);
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

void drop_queue(bus_client *client)
{
    while (!list_empty(&client->tx)) {
        free_outgoing(client, list_first_entry(&client->tx, outgoing_message, list));
    }
}

} // namespace broker
