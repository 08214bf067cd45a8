// The bus broker: clients, the objects they publish, and what is kept about them.
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
struct Turn {
    Account *account;  // of the client whose message is handled; null: of root, or the broker's own doing
    unsigned int work; // messages taken and sent, and objects listed
};
extern Turn turn;
// After so much work the other clients get their turn.
constexpr unsigned int work_per_turn = 32;

// A message in reception or under examination.
struct Message {
    ubus_msghdr hdr;
    blob_attr *body;
    blob_attr *attr[UBUS_ATTR_MAX];
    int *fd; // descriptor that came with it, or -1; a handler may take it
};

struct Outgoing {
    list_head list;
    Account *payer;
    size_t len;
    size_t sent;
    int fd;
    char bytes[];
};

// A LOOKUP that lists more than the client has read so far.
struct Listing {
    bool running;
    uint16_t seq;
    uint32_t peer;
    char *prefix;    // charged to the client; null: all
    char *last_path; // the last one sent, null: none yet
};

struct Identity {
    uid_t uid;
    gid_t gid;
    gid_t groups[64];
    size_t group_count;
    char *user;
    char *group;
};

struct Client {
    avl_node by_id;
    uint32_t id;
    uloop_fd sock;
    Identity identity;
    Account *account; // null: root's
    list_head objects;

    ubus_msghdr rx_hdr;
    char *rx_body;
    size_t rx_have; // of header and body
    size_t rx_capacity;
    int rx_fd;

    list_head tx;
    size_t tx_len;

    Listing listing;
    bool leaving;
    bool monitoring;
    list_head in_monitors;
    uint16_t monitor_seq;
};

struct Type {
    avl_node by_id;
    uint32_t id;
    unsigned int users;
    Account *payer;       // the one who brought it, as long as it has users
    blob_attr *signature; // the SIGNATURE attribute as it was sent
};

struct Object {
    avl_node by_id;
    avl_node by_path; // only with a path
    list_head in_client;
    uint32_t id;
    char *path; // null: anonymous
    Type *type; // null: never listed
    Client *client;
    list_head subscribers;   // Subscription::of_target
    list_head subscriptions; // Subscription::of_subscriber
    list_head patterns;      // Pattern::of_object
    uint16_t seq;            // of messages the broker itself starts
    uint32_t last_event;
};

struct Subscription {
    list_head of_target;
    list_head of_subscriber;
    Object *target;
    Object *subscriber;
};

using wire::Builder;

// A message to one object or to many, the same for all but for the object's id.
struct ObjectMessage : Builder {
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
Client *client_new(int fd, const Identity &identity, Account *account);
void client_free(Client *client);
Client *client_find(uint32_t id);
void clients_free_all();

// receive.cpp
void on_client_event(uloop_fd *sock, unsigned int events);
void drop_received(Client *client);

// send.cpp. What waits in a queue is paid for by its client, or, where that is root's, by the sender. The
// results are false when the message is lost: the queue is full, a budget used up, or memory missing.
bool send_to(Client *client, int type, uint16_t seq, uint32_t peer, const Builder &body, int *fd = nullptr);
bool send_raw(Client *client, const ubus_msghdr &hdr, const blob_attr *body, int *fd = nullptr);
// Whether a message of this length could be sent, so that none is built in vain.
bool has_room(const Client *client, size_t len);
void send_status(Client *client, const Message &request, int status);
bool flush_queue(Client *client); // true when nothing is left
void drop_queue(Client *client);
// What the event loop is to tell about this client's socket, by the state of its queue and listing.
void update_interest(Client *client);

// dispatch.cpp
void handle_message(Client *client, const ubus_msghdr &hdr, blob_attr *body, int *fd);
// A call or a notification as the owner of an object gets it.
void build_call(ObjectMessage &call, const Client *from, const Message &msg, const char *method, bool silent);

// objects.cpp
Object *object_find(uint32_t id);
Object *object_find_path(const char *path);
// In the order of paths; null after the last.
Object *object_first_path();
Object *object_next_path(Object *object);
// The first path behind this one.
Object *object_after_path(const char *path);
void object_free(Object *object);
int handle_add_object(Client *client, const Message &msg);
int handle_remove_object(Client *client, const Message &msg);

// lookup.cpp
int handle_lookup(Client *client, const Message &msg);
void continue_listing(Client *client);
void drop_listing(Client *client);

// subscribe.cpp
int handle_subscribe(Client *client, const Message &msg);
int handle_unsubscribe(Client *client, const Message &msg);
int handle_notify(Client *client, const Message &msg);
void drop_subscriptions(Object *object);

// events.cpp
int handle_event_call(Client *client, const Message &msg, const char *method);
// From the broker itself: to everyone who listens.
void announce_object(const char *event, const Object *object);
void announce_acl_sequence(uint32_t sequence);
void drop_patterns(Object *object);

// monitor.cpp
int handle_monitor_call(Client *client, const char *method);
void monitor_remove(Client *client);
void monitor_message(const Client *client, const ubus_msghdr &hdr, const blob_attr *body,
                     bool sent_by_broker);

// acl.cpp: access for users other than root, from files.
enum class Access { call, publish, subscribe, listen, send };
bool acl_allows(const Client *client, Access access, const char *name, const char *method = nullptr);
void acl_load(const char *dir);
void acl_reload(const char *dir); // counts, and tells who listens
void acl_free();
int handle_acl_call(Client *client, const Message &msg, const char *method);

} // namespace broker
