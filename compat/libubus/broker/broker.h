// The records of the bus broker: clients, their objects, types, subscriptions and queues.
//
// One process, one thread, driven by the event loop; never blocks. Clients own their objects, objects own
// their subscriptions and event patterns. A client is freed only from its own socket callback, so a pointer
// to one stays good while another's message is handled. Everything in a struct here is in host byte order.
#pragma once

#include "account.h"
#include "builder.h"

#include <cstddef>
#include <libubus.h>

namespace broker {

constexpr int no_reply = -1;
// Bytes that may wait for one client; as many again only when they come from root or from the broker.
constexpr size_t max_queue = UBUS_MAX_MSGLEN;

// What the broker is doing at the moment.
struct client_turn {
    user_account *account; // of the client whose message is handled; null: of root, or the broker's own doing
    unsigned int work;     // messages taken and sent, and objects listed
};
extern client_turn turn;
// After so much work the other clients get their turn.
constexpr unsigned int work_per_turn = 32;

// A message in reception or under examination.
struct received_request {
    ubus_msghdr hdr;
    blob_attr *body;
    blob_attr *attr[UBUS_ATTR_MAX];
    int *fd; // descriptor that came with it, or -1; a handler may take it
};

struct outgoing_message {
    list_head list;
    user_account *payer;
    size_t len;
    size_t sent;
    int fd;
    char bytes[];
};

// A LOOKUP that lists more than the client has read so far.
struct running_listing {
    bool running;
    uint16_t seq;
    uint32_t peer;
    char *prefix;    // charged to the client; null: all
    char *last_path; // the last one sent, null: none yet
};

struct peer_identity {
    uid_t uid;
    gid_t gid;
    gid_t groups[64];
    size_t group_count;
    char *user;
    char *group;
};

struct bus_client {
    avl_node by_id;
    uint32_t id;
    uloop_fd sock;
    peer_identity identity;
    user_account *account; // null: root's
    list_head objects;

    ubus_msghdr rx_hdr;
    char *rx_body;
    size_t rx_have; // of header and body
    size_t rx_capacity;
    int rx_fd;

    list_head tx;
    size_t tx_len;

    running_listing listing;
    bool leaving;
    bool monitoring;
    list_head in_monitors;
    uint16_t monitor_seq;
};

struct object_type {
    avl_node by_id;
    uint32_t id;
    unsigned int users;
    user_account *payer;  // the one who brought it, as long as it has users
    blob_attr *signature; // the SIGNATURE attribute as it was sent
};

struct bus_object {
    avl_node by_id;
    avl_node by_path; // only with a path
    list_head in_client;
    uint32_t id;
    char *path;        // null: anonymous
    object_type *type; // null: never listed
    bus_client *client;
    list_head subscribers;   // subscription_link::of_target
    list_head subscriptions; // subscription_link::of_subscriber
    list_head patterns;      // event_pattern::of_object
    uint16_t seq;            // of messages the broker itself starts
    uint32_t last_event;
};

struct subscription_link {
    list_head of_target;
    list_head of_subscriber;
    bus_object *target;
    bus_object *subscriber;
};

using wire::message_builder;

// A message to one object or to many, the same for all but for the object's id.
struct object_message : message_builder {
    void put_id() // its place
    {
        id_place = ok ? blob_pad_len(head) : 0;
        put_u32(UBUS_ATTR_OBJID, 0);
    }
    void address_to(uint32_t id)
    {
        const uint32_t on_wire = cpu_to_be32(id);
        if (ok) {
            memcpy(reinterpret_cast<char *>(head) + id_place + sizeof(blob_attr), &on_wire, sizeof(on_wire));
        }
    }
    size_t id_place = 0; // 0: nothing is built yet
};

// ids.cpp: a tree of records by random 32-bit id.
void init_id_tree(avl_tree *tree);
// Draws a free id, stores it and files the node; false when no id could be had.
bool file_under_new_id(avl_tree *tree, avl_node *node, uint32_t *id);
char *copy_text(const char *text); // null without memory or text

// client.cpp
// Greets. Takes over fd, the names and the connection that was charged to the account, in any case.
bus_client *client_new(int fd, const peer_identity &identity, user_account *account);
void client_free(bus_client *client);
bus_client *client_find(uint32_t id);
void clients_free_all();

// receive.cpp
void on_client_event(uloop_fd *sock, unsigned int events);
void drop_received(bus_client *client);

// send.cpp. What waits in a queue is paid for by its client, or, where that is root's, by the sender. The
// results are false when the message is lost: the queue is full, a budget used up, or memory missing.
bool send_to(bus_client *client, int type, uint16_t seq, uint32_t peer, const message_builder &body,
             int *fd = nullptr);
bool send_raw(bus_client *client, const ubus_msghdr &hdr, const blob_attr *body, int *fd = nullptr);
// Whether a message of this length could be sent, so that none is built in vain.
bool has_room(const bus_client *client, size_t len);
void send_status(bus_client *client, const received_request &request, int status);
bool flush_queue(bus_client *client); // true when nothing is left
void drop_queue(bus_client *client);
// Chooses the events of the client's socket by the state of its queue and listing.
void update_interest(bus_client *client);

// dispatch.cpp
void handle_message(bus_client *client, const ubus_msghdr &hdr, blob_attr *body, int *fd);
// A call or a notification as the owner of an object gets it.
void build_call(object_message &call, const bus_client *from, const received_request &msg, const char *method,
                bool silent);

// objects.cpp
bus_object *object_find(uint32_t id);
bus_object *object_find_path(const char *path);
// In the order of paths; null after the last.
bus_object *object_first_path();
bus_object *object_next_path(bus_object *object);
// The first path behind this one.
bus_object *object_after_path(const char *path);
void object_free(bus_object *object);
int handle_add_object(bus_client *client, const received_request &msg);
int handle_remove_object(bus_client *client, const received_request &msg);

// lookup.cpp
int handle_lookup(bus_client *client, const received_request &msg);
void continue_listing(bus_client *client);
void drop_listing(bus_client *client);

// subscribe.cpp
int handle_subscribe(bus_client *client, const received_request &msg);
int handle_unsubscribe(bus_client *client, const received_request &msg);
int handle_notify(bus_client *client, const received_request &msg);
void drop_subscriptions(bus_object *object);

// events.cpp
int handle_event_call(bus_client *client, const received_request &msg, const char *method);
// From the broker itself: to everyone who listens.
void announce_object(const char *event, const bus_object *object);
void announce_acl_sequence(uint32_t sequence);
void drop_patterns(bus_object *object);

// monitor.cpp
int handle_monitor_call(bus_client *client, const char *method);
void monitor_remove(bus_client *client);
void monitor_message(const bus_client *client, const ubus_msghdr &hdr, const blob_attr *body,
                     bool sent_by_broker);

// acl.cpp: access for users other than root, from files.
enum class access_kind { call, publish, subscribe, listen, send };
bool acl_allows(const bus_client *client, access_kind access, const char *name, const char *method = nullptr);
void acl_load(const char *dir);
void acl_reload(const char *dir); // counts the readings, and sends an event to listeners
void acl_free();
int handle_acl_call(bus_client *client, const received_request &msg, const char *method);

} // namespace broker
