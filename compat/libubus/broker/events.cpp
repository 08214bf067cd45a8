// Events: named messages to everyone who has asked for the name or its beginning.
#include "broker.h"

namespace broker {

namespace {

struct event_pattern {
    list_head in_all;
    list_head of_object;
    bus_object *object;
    bool prefix;
    size_t len;
    char text[];
};

list_head patterns = LIST_HEAD_INIT(patterns);
uint32_t event_count = 0;

resource_cost cost_of(size_t pattern_len)
{
    return {.bytes = pattern_len, .subscriptions = 1};
}

bool matches(const event_pattern *pattern, const char *name)
{
    return pattern->prefix ? strncmp(pattern->text, name, pattern->len) == 0
                           : strcmp(pattern->text, name) == 0;
}

// data: its payload becomes the event's. from is left out; null for the broker itself.
void send_event(const bus_client *from, const char *name, const void *data, size_t len)
{
    object_message event;
    event_pattern *pattern;

    event_count++;
    list_for_each_entry(pattern, &patterns, in_all)
    {
        bus_object *object = pattern->object;
        if (object->client == from || object->last_event == event_count || !matches(pattern, name) ||
            !has_room(object->client, len)) {
            continue;
        }
        if (event.id_place == 0) {
            event.put_id();
            event.put_string(UBUS_ATTR_METHOD, name);
            event.check(blob_put(&event, UBUS_ATTR_DATA, data, static_cast<unsigned int>(len)));
        }
        object->last_event = event_count;
        event.address_to(object->id);
        send_to(object->client, UBUS_MSG_INVOKE, static_cast<uint16_t>(event_count), 0, event);
    }
}

bool has_pattern(const bus_object *object, const char *text, size_t len, bool prefix)
{
    event_pattern *pattern;
    list_for_each_entry(pattern, &object->patterns, of_object)
    {
        if (pattern->prefix == prefix && pattern->len == len && memcmp(pattern->text, text, len) == 0) {
            return true;
        }
    }
    return false;
}

int add_pattern(bus_object *object, const char *text)
{
    const size_t text_len = strlen(text);
    const bool prefix = text[text_len - 1] == '*';
    const size_t len = prefix ? text_len - 1 : text_len;
    if (has_pattern(object, text, len, prefix)) {
        return UBUS_STATUS_OK;
    }
    if (!charge(object->client->account, cost_of(len))) {
        return UBUS_STATUS_NO_MEMORY;
    }
    auto *pattern = static_cast<event_pattern *>(calloc(1, sizeof(event_pattern) + len + 1));
    if (pattern == nullptr) {
        discharge(object->client->account, cost_of(len));
        return UBUS_STATUS_NO_MEMORY;
    }
    memcpy(pattern->text, text, len);
    pattern->prefix = prefix;
    pattern->len = len;
    pattern->object = object;
    list_add_tail(&pattern->in_all, &patterns);
    list_add_tail(&pattern->of_object, &object->patterns);
    return UBUS_STATUS_OK;
}

int handle_register(bus_client *client, blob_attr *data)
{
    static const blobmsg_policy policy[] = {{"object", BLOBMSG_TYPE_INT32}, {"pattern", BLOBMSG_TYPE_STRING}};
    blob_attr *args[2];

    blobmsg_parse_attr(policy, 2, args, data);
    if (args[0] == nullptr || args[1] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const uint32_t id = blobmsg_get_u32(args[0]);
    if (id < UBUS_SYSTEM_OBJECT_MAX) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    bus_object *object = object_find(id);
    if (object == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    const char *text = blobmsg_get_string(args[1]);
    if (object->client != client || !text[0] || !acl_allows(client, access_kind::listen, text)) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    return add_pattern(object, text);
}

int handle_send(bus_client *client, blob_attr *data)
{
    static const blobmsg_policy policy[] = {{"id", BLOBMSG_TYPE_STRING}, {"data", BLOBMSG_TYPE_TABLE}};
    blob_attr *args[2];

    blobmsg_parse_attr(policy, 2, args, data);
    if (args[0] == nullptr || args[1] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const char *name = blobmsg_get_string(args[0]);
    // The broker's own events cannot be forged.
    if (strncmp(name, "ubus.", 5) == 0 || !acl_allows(client, access_kind::send, name)) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    send_event(client, name, blobmsg_data(args[1]), blobmsg_data_len(args[1]));
    return UBUS_STATUS_OK;
}

} // namespace

int handle_event_call(bus_client *client, const received_request &msg, const char *method)
{
    blob_attr *data = msg.attr[UBUS_ATTR_DATA];
    if (data == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (strcmp(method, "register") == 0) {
        return handle_register(client, data);
    }
    if (strcmp(method, "send") == 0) {
        return handle_send(client, data);
    }
    return UBUS_STATUS_INVALID_COMMAND;
}

void announce_object(const char *event, const bus_object *object)
{
    message_builder data;
    data.ok = data.ok && blobmsg_add_u32(&data, "id", object->id) == 0 &&
              blobmsg_add_string(&data, "path", object->path) == 0;
    if (data.ok) {
        send_event(nullptr, event, blob_data(data.head), blob_len(data.head));
    }
}

void announce_acl_sequence(uint32_t sequence)
{
    message_builder data;
    data.ok = data.ok && blobmsg_add_u32(&data, "sequence", sequence) == 0;
    if (data.ok) {
        send_event(nullptr, "ubus.acl.sequence", blob_data(data.head), blob_len(data.head));
    }
}

void drop_patterns(bus_object *object)
{
    while (!list_empty(&object->patterns)) {
        event_pattern *pattern = list_first_entry(&object->patterns, event_pattern, of_object);
        list_del(&pattern->in_all);
        list_del(&pattern->of_object);
        discharge(object->client->account, cost_of(pattern->len));
        free(pattern);
    }
}

} // namespace broker
