// Receiving: bytes of a client to whole messages. Memory for a message grows with the bytes received, so
// announcing a large one costs the sender as much as the broker.
#include "broker.h"
#include "wire.h"

#include <unistd.h>

namespace broker {

namespace {

using wire::header_len;
using wire::progress;

constexpr size_t first_capacity = 1024;
constexpr size_t kept_capacity = 16384;

// Room for more bytes of the message: the buffer doubles until the whole message fits.
bool ensure_room(bus_client *client, size_t body_have, size_t body_goal)
{
    if (client->rx_capacity >= body_goal || client->rx_capacity > body_have) {
        return true;
    }
    const size_t capacity = client->rx_capacity ? client->rx_capacity * 2 : first_capacity;
    const resource_cost cost = {.bytes = capacity - client->rx_capacity};
    if (!charge(client->account, cost)) {
        return false;
    }
    auto *grown = static_cast<char *>(realloc(client->rx_body, capacity));
    if (grown == nullptr) {
        discharge(client->account, cost);
        return false;
    }
    client->rx_body = grown;
    client->rx_capacity = capacity;
    return true;
}

ssize_t read_towards(bus_client *client, size_t goal)
{
    const size_t body_have = wire::body_part(client->rx_have);
    size_t body_wanted = goal - header_len - body_have;
    if (body_wanted > client->rx_capacity - body_have) {
        body_wanted = client->rx_capacity - body_have;
    }
    const ssize_t got = wire::read_on(client->sock.fd, client->rx_hdr, client->rx_have,
                                      client->rx_body + body_have, body_wanted, client->rx_fd);
    if (got > 0) {
        client->rx_have += static_cast<size_t>(got);
    }
    return got;
}

progress receive_step(bus_client *client)
{
    for (;;) {
        const size_t goal = wire::goal(client->rx_have, client->rx_body);
        if (goal == 0) {
            return progress::broken;
        }
        if (client->rx_have == goal) {
            return progress::message;
        }
        if (!ensure_room(client, wire::body_part(client->rx_have), goal - header_len)) {
            return progress::broken;
        }
        const progress step = wire::step_after(read_towards(client, goal));
        if (step != progress::more) {
            return step;
        }
    }
}

void deliver(bus_client *client)
{
    ubus_msghdr hdr = client->rx_hdr;
    hdr.seq = be16_to_cpu(hdr.seq);
    hdr.peer = be32_to_cpu(hdr.peer);

    auto *body = reinterpret_cast<blob_attr *>(client->rx_body);
    int fd = client->rx_fd;
    client->rx_fd = -1;
    client->rx_have = 0;
    monitor_message(client, hdr, body, false);
    handle_message(client, hdr, body, &fd);
    if (fd >= 0) {
        close(fd);
    }
    if (client->rx_capacity > kept_capacity) {
        drop_received(client);
    }
}

void serve(bus_client *client, bool writable, bool hung_up)
{
    if (hung_up) {
        drop_listing(client);
    }
    if (writable && flush_queue(client) && client->listing.running) {
        continue_listing(client);
    }
    // A client that does not read its listing is not listened to either.
    while (turn.work < work_per_turn && !client->listing.running) {
        const progress step = receive_step(client);
        if (step == progress::nothing && !hung_up) {
            return;
        }
        if (step != progress::message) {
            client_free(client);
            return;
        }
        turn.work++;
        deliver(client);
    }
}

} // namespace

void drop_received(bus_client *client)
{
    free(client->rx_body);
    discharge(client->account, {.bytes = client->rx_capacity});
    client->rx_body = nullptr;
    client->rx_capacity = 0;
}

void on_client_event(uloop_fd *sock, unsigned int events)
{
    bus_client *client = container_of(sock, bus_client, sock);

    turn = {client->account, 0};
    serve(client, (events & ULOOP_WRITE) != 0, sock->error);
    turn = {};
}

} // namespace broker
