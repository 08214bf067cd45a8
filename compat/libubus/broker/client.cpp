// Clients: from greeting to the removal of everything they left behind.
#include "broker.h"

#include <malloc.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr resource_cost one_connection = {.connections = 1};
constexpr int trim_ms = 1000;

avl_tree *clients()
{
    static avl_tree tree;
    if (tree.comp == nullptr) {
        init_id_tree(&tree);
    }
    return &tree;
}

void free_identity(const peer_identity &identity)
{
    free(identity.user);
    free(identity.group);
}

// What clients held goes from the heap back to the system: not at the end of each of them, but soon after.
void trim_heap(uloop_timeout *)
{
    malloc_trim(0);
}

uloop_timeout trim_timer = {{}, false, trim_heap, {}};

} // namespace

bus_client *client_new(int fd, const peer_identity &identity, user_account *account)
{
    auto *client = static_cast<bus_client *>(calloc(1, sizeof(bus_client)));
    if (client == nullptr || !file_under_new_id(clients(), &client->by_id, &client->id)) {
        free(client);
        free_identity(identity);
        discharge(account, one_connection);
        close(fd);
        return nullptr;
    }
    client->identity = identity;
    client->account = account;
    client->rx_fd = -1;
    client->sock.fd = fd;
    client->sock.cb = on_client_event;
    INIT_LIST_HEAD(&client->objects);
    INIT_LIST_HEAD(&client->tx);
    INIT_LIST_HEAD(&client->in_monitors);

    message_builder hello;
    if (!send_to(client, UBUS_MSG_HELLO, 0, client->id, hello) ||
        uloop_fd_add(&client->sock, ULOOP_READ | ULOOP_ERROR_CB) < 0) {
        client_free(client);
        return nullptr;
    }
    // What did not fit of the greeting waits, and nothing but this makes the loop send it.
    update_interest(client);
    return client;
}

void client_free(bus_client *client)
{
    client->leaving = true;
    uloop_fd_delete(&client->sock);
    monitor_remove(client);
    while (!list_empty(&client->objects)) {
        object_free(list_first_entry(&client->objects, bus_object, in_client));
    }
    drop_queue(client);
    drop_listing(client);
    avl_delete(clients(), &client->by_id);
    if (client->rx_fd >= 0) {
        close(client->rx_fd);
    }
    close(client->sock.fd);
    drop_received(client);
    free_identity(client->identity);
    discharge(client->account, one_connection);
    free(client);
    if (!trim_timer.pending) {
        uloop_timeout_set(&trim_timer, trim_ms);
    }
}

bus_client *client_find(uint32_t id)
{
    bus_client *client;
    return avl_find_element(clients(), &id, client, by_id);
}

void clients_free_all()
{
    while (!avl_is_empty(clients())) {
        bus_client *client = nullptr;
        client_free(avl_first_element(clients(), client, by_id));
    }
}

} // namespace broker
