// Subscriptions: objects that receive the notifications of another object.
#include "broker.h"

namespace broker {

namespace {

constexpr resource_cost one_subscription = {.subscriptions = 1};

// Tells the owner that the first subscriber has come or the last one has gone.
void tell_owner(bus_object *target, bool active)
{
    message_builder body;
    body.put_u32(UBUS_ATTR_OBJID, target->id);
    body.put_u8(UBUS_ATTR_ACTIVE, active ? 1 : 0);
    send_to(target->client, UBUS_MSG_NOTIFY, ++target->seq, 0, body);
}

void tell_subscriber(bus_object *subscriber, const bus_object *target)
{
    message_builder body;
    body.put_u32(UBUS_ATTR_OBJID, subscriber->id);
    body.put_u32(UBUS_ATTR_TARGET, target->id);
    send_to(subscriber->client, UBUS_MSG_UNSUBSCRIBE, ++subscriber->seq, 0, body);
}

void unlink(subscription_link *subscription)
{
    list_del(&subscription->of_target);
    list_del(&subscription->of_subscriber);
    discharge(subscription->subscriber->client->account, one_subscription);
    free(subscription);
}

subscription_link *find_subscription(const bus_object *subscriber, uint32_t target_id)
{
    subscription_link *subscription;
    list_for_each_entry(subscription, &subscriber->subscriptions, of_subscriber)
    {
        if (subscription->target->id == target_id) {
            return subscription;
        }
    }
    return nullptr;
}

// The answer to a notification that a subscriber cannot get.
void answer_for(const bus_object *subscriber, bus_client *client, const received_request &msg)
{
    message_builder body;
    body.put_u32(UBUS_ATTR_STATUS, UBUS_STATUS_NO_MEMORY);
    body.put_u32(UBUS_ATTR_OBJID, subscriber->id);
    send_to(client, UBUS_MSG_STATUS, msg.hdr.seq, subscriber->id, body);
}

void notify_subscribers(bus_client *client, const bus_object *object, const received_request &msg,
                        bool silent)
{
    const char *method = blob_get_string(msg.attr[UBUS_ATTR_METHOD]);
    const size_t least_len = msg.attr[UBUS_ATTR_DATA] != nullptr ? blob_raw_len(msg.attr[UBUS_ATTR_DATA]) : 0;
    object_message call;
    subscription_link *subscription;

    list_for_each_entry(subscription, &object->subscribers, of_target)
    {
        const bus_object *subscriber = subscription->subscriber;
        bool sent = false;
        if (has_room(subscriber->client, least_len)) {
            if (call.id_place == 0) {
                build_call(call, client, msg, method, silent);
            }
            call.address_to(subscriber->id);
            sent = send_to(subscriber->client, UBUS_MSG_INVOKE, msg.hdr.seq, client->id, call);
        }
        if (!sent && !silent) {
            answer_for(subscriber, client, msg);
        }
    }
}

} // namespace

void drop_subscriptions(bus_object *object)
{
    while (!list_empty(&object->subscriptions)) {
        subscription_link *subscription =
            list_first_entry(&object->subscriptions, subscription_link, of_subscriber);
        bus_object *target = subscription->target;
        unlink(subscription);
        if (list_empty(&target->subscribers)) {
            tell_owner(target, false);
        }
    }
    const bool watched = !list_empty(&object->subscribers);
    while (!list_empty(&object->subscribers)) {
        subscription_link *subscription =
            list_first_entry(&object->subscribers, subscription_link, of_target);
        tell_subscriber(subscription->subscriber, object);
        unlink(subscription);
    }
    if (watched) {
        tell_owner(object, false);
    }
}

int handle_subscribe(bus_client *client, const received_request &msg)
{
    if (msg.attr[UBUS_ATTR_OBJID] == nullptr || msg.attr[UBUS_ATTR_TARGET] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    bus_object *subscriber = object_find(blob_get_u32(msg.attr[UBUS_ATTR_OBJID]));
    bus_object *target = object_find(blob_get_u32(msg.attr[UBUS_ATTR_TARGET]));
    if (subscriber == nullptr || subscriber->client != client) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (target == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (target->client == client) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (target->path != nullptr && !acl_allows(client, access_kind::subscribe, target->path)) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (find_subscription(subscriber, target->id) != nullptr) {
        return UBUS_STATUS_OK;
    }
    if (!charge(client->account, one_subscription)) {
        return UBUS_STATUS_NO_MEMORY;
    }
    auto *subscription = static_cast<subscription_link *>(calloc(1, sizeof(subscription_link)));
    if (subscription == nullptr) {
        discharge(client->account, one_subscription);
        return UBUS_STATUS_NO_MEMORY;
    }
    const bool first = list_empty(&target->subscribers);
    subscription->target = target;
    subscription->subscriber = subscriber;
    list_add(&subscription->of_target, &target->subscribers);
    list_add(&subscription->of_subscriber, &subscriber->subscriptions);
    if (first) {
        tell_owner(target, true);
    }
    return UBUS_STATUS_OK;
}

int handle_unsubscribe(bus_client *client, const received_request &msg)
{
    if (msg.attr[UBUS_ATTR_OBJID] == nullptr || msg.attr[UBUS_ATTR_TARGET] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    bus_object *subscriber = object_find(blob_get_u32(msg.attr[UBUS_ATTR_OBJID]));
    const uint32_t target_id = blob_get_u32(msg.attr[UBUS_ATTR_TARGET]);
    if (subscriber == nullptr || subscriber->client != client) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    subscription_link *subscription = find_subscription(subscriber, target_id);
    if (subscription == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    bus_object *target = subscription->target;
    unlink(subscription);
    if (list_empty(&target->subscribers)) {
        tell_owner(target, false);
    }
    return UBUS_STATUS_OK;
}

int handle_notify(bus_client *client, const received_request &msg)
{
    if (msg.attr[UBUS_ATTR_OBJID] == nullptr || msg.attr[UBUS_ATTR_METHOD] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    bus_object *object = object_find(blob_get_u32(msg.attr[UBUS_ATTR_OBJID]));
    if (object == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (object->client != client) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    subscription_link *subscription;
    const bool silent =
        msg.attr[UBUS_ATTR_NO_REPLY] != nullptr && (blob_get_u8(msg.attr[UBUS_ATTR_NO_REPLY]) != 0);
    if (!silent) {
        message_builder body;
        body.put_u32(UBUS_ATTR_OBJID, object->id);
        void *nest = blob_nest_start(&body, UBUS_ATTR_SUBSCRIBERS);
        body.check(nest);
        list_for_each_entry(subscription, &object->subscribers, of_target)
        {
            if (body.ok) {
                body.put_u32(UBUS_ATTR_UNSPEC, subscription->subscriber->id);
            }
        }
        if (body.ok) {
            blob_nest_end(&body, nest);
            body.put_u32(UBUS_ATTR_STATUS, UBUS_STATUS_OK);
        }
        send_to(client, UBUS_MSG_STATUS, msg.hdr.seq, msg.hdr.peer, body);
    }
    notify_subscribers(client, object, msg, silent);
    return no_reply;
}

} // namespace broker
