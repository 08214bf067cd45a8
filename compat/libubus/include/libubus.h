/*
 * Client side of the bus.
 *
 * A context is one connection. Objects, event handlers and their strings belong to the caller and stay valid
 * while registered. Messages handed to a callback are valid until it returns, nested bus calls included.
 * Calls that return int give a UBUS_STATUS_ value (0 is success) unless noted. Time-outs are milliseconds, 0
 * waits for ever. A synchronous call serves answers to other requests while it waits; calls to own objects
 * are queued until the outermost one is over.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#include "ubus_common.h"
#include "ubusmsg.h"

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>
#include <stdint.h>

#define UBUS_MAX_NOTIFY_PEERS 16

struct ubus_context;
struct ubus_object;
struct ubus_request;
struct ubus_request_data;
struct ubus_object_data;
struct ubus_event_handler;

typedef void (*ubus_lookup_handler_t)(struct ubus_context *ctx, struct ubus_object_data *obj, void *priv);
typedef int (*ubus_handler_t)(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method, struct blob_attr *msg);
typedef void (*ubus_state_handler_t)(struct ubus_context *ctx, struct ubus_object *obj);
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                     const char *type, struct blob_attr *msg);
typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type, struct blob_attr *msg);
typedef void (*ubus_fd_handler_t)(struct ubus_request *req, int fd);
typedef void (*ubus_complete_handler_t)(struct ubus_request *req, int ret);

struct ubus_msghdr_buf {
    struct ubus_msghdr hdr;
    struct blob_attr *data;
};

#define UBUS_TAG_STATUS 1
#define UBUS_TAG_ADMIN 2
#define UBUS_TAG_PRIVATE 4

struct ubus_method {
    const char *name;
    ubus_handler_t handler;
    unsigned long mask;
    unsigned long tags;
    const struct blobmsg_policy *policy;
    int n_policy;
};

struct ubus_object_type {
    const char *name;
    uint32_t id;
    const struct ubus_method *methods;
    int n_methods;
};

/* Initialisers of the two above; _policy and _methods are arrays. */
#define UBUS_METHOD_FIELDS_(_name, _handler, _mask, _tags, _policy, _n_policy)                               \
    {                                                                                                        \
        _name, _handler, _mask, _tags, _policy, _n_policy                                                    \
    }
#define UBUS_METHOD(_name, _handler, _policy)                                                                \
    UBUS_METHOD_FIELDS_(_name, _handler, 0, 0, _policy, (int)ARRAY_SIZE(_policy))
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask)                                                    \
    UBUS_METHOD_FIELDS_(_name, _handler, _mask, 0, _policy, (int)ARRAY_SIZE(_policy))
#define UBUS_METHOD_TAG(_name, _handler, _policy, _tags)                                                     \
    UBUS_METHOD_FIELDS_(_name, _handler, 0, _tags, _policy, (int)ARRAY_SIZE(_policy))
#define UBUS_METHOD_NOARG(_name, _handler) UBUS_METHOD_FIELDS_(_name, _handler, 0, 0, NULL, 0)
#define UBUS_METHOD_TAG_NOARG(_name, _handler, _tags) UBUS_METHOD_FIELDS_(_name, _handler, 0, _tags, NULL, 0)
#define UBUS_OBJECT_TYPE(_name, _methods)                                                                    \
    {                                                                                                        \
        _name, 0, _methods, (int)ARRAY_SIZE(_methods)                                                        \
    }

struct ubus_object {
    struct avl_node avl;
    const char *name;
    uint32_t id;
    const char *path;
    struct ubus_object_type *type;
    ubus_state_handler_t subscribe_cb;
    bool has_subscribers;
    const struct ubus_method *methods;
    int n_methods;
};

struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

struct ubus_context {
    struct list_head requests;
    struct avl_tree objects;
    struct list_head pending;
    struct uloop_fd sock;
    struct uloop_timeout pending_timer;
    uint32_t local_id; /* as received, big-endian */
    uint16_t request_seq;
    bool cancel_poll;
    int stack_depth;
    void (*connection_lost)(struct ubus_context *ctx);
    void (*monitor_cb)(struct ubus_context *ctx, uint32_t seq, struct blob_attr *data);
    struct ubus_msghdr_buf msgbuf;
    uint32_t msgbuf_data_len;
    int msgbuf_reduction_counter;
    union {
        struct {
            struct list_head auto_subscribers;
            struct ubus_event_handler auto_subscribe_event_handler;
        };
        struct {
            ubus_handler_t request_handler;
        };
    };
};

struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char *path;
    struct blob_attr *signature;
};

struct ubus_acl_key {
    const char *user;
    const char *group;
    const char *object;
};

struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;
    struct ubus_acl_key acl;
    bool deferred;
    int fd;
    int req_fd;
};

struct ubus_request {
    struct list_head list;
    struct list_head pending;
    int status_code;
    bool status_msg;
    bool blocked;
    bool cancelled;
    bool notify;
    uint32_t peer;
    uint16_t seq;
    ubus_data_handler_t raw_data_cb;
    ubus_data_handler_t data_cb;
    ubus_fd_handler_t fd_cb;
    ubus_complete_handler_t complete_cb;
    int fd;
    struct ubus_context *ctx;
    void *priv;
};

const char *ubus_strerror(int error);

/* Null path: the default socket. Also initialises the event loop; the socket is not yet part of it. */
struct ubus_context *ubus_connect(const char *path);
int ubus_connect_ctx(struct ubus_context *ctx, const char *path); /* 0 or -1 */
/* Also registers all objects of the context again; event patterns are not. */
int ubus_reconnect(struct ubus_context *ctx, const char *path);
void ubus_free(struct ubus_context *ctx);
void ubus_shutdown(struct ubus_context *ctx);

static inline void ubus_add_uloop(struct ubus_context *ctx)
{
    uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

static inline void ubus_handle_event(struct ubus_context *ctx)
{
    ctx->sock.cb(&ctx->sock, ULOOP_READ);
}

/* Ends all asynchronous requests with a time-out. */
void ubus_flush_requests(struct ubus_context *ctx);
int ubus_complete_request(struct ubus_context *ctx, struct ubus_request *req, int timeout);
void ubus_complete_request_async(struct ubus_context *ctx, struct ubus_request *req);
/* Forgets the request; its complete_cb is not called. */
void ubus_abort_request(struct ubus_context *ctx, struct ubus_request *req);

int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv);
/* *id stays as it was when the caller may not see the object. */
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);

int ubus_add_object(struct ubus_context *ctx, struct ubus_object *obj);
int ubus_remove_object(struct ubus_context *ctx, struct ubus_object *obj);

int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd);
int ubus_invoke_async_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                         struct ubus_request *req, int fd);

static inline int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method,
                              struct blob_attr *msg, ubus_data_handler_t cb, void *priv, int timeout)
{
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout, -1);
}

/* Zeroes req: set its callbacks afterwards, then hand it to ubus_complete_request(_async). */
static inline int ubus_invoke_async(struct ubus_context *ctx, uint32_t obj, const char *method,
                                    struct blob_attr *msg, struct ubus_request *req)
{
    return ubus_invoke_async_fd(ctx, obj, method, msg, req, -1);
}

int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg);

/* Answer after the handler has returned: exactly one ubus_complete_deferred_request with the copy. */
static inline void ubus_defer_request(struct ubus_context *ctx, struct ubus_request_data *req,
                                      struct ubus_request_data *new_req)
{
    (void)ctx;
    memcpy(new_req, req, sizeof(*req));
    req->deferred = true;
}

void ubus_complete_deferred_request(struct ubus_context *ctx, struct ubus_request_data *req, int ret);

static inline void ubus_request_set_fd(struct ubus_context *ctx, struct ubus_request_data *req, int fd)
{
    (void)ctx;
    req->fd = fd;
}

static inline int ubus_request_get_caller_fd(struct ubus_request_data *req)
{
    int fd = req->req_fd;
    req->req_fd = -1;
    return fd;
}

int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);
/* May be called again with further patterns for the same handler. */
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern);

static inline int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev)
{
    return ubus_remove_object(ctx, &ev->obj);
}

#ifdef __cplusplus
}
#endif
