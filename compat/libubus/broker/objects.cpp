// Objects and their types.
#include "broker.h"

extern "C" {
#include <libubox/avl-cmp.h>
}

namespace broker {

namespace {

struct object_registry {
    avl_tree objects;
    avl_tree paths;
    avl_tree types;
};

object_registry &registry()
{
    static object_registry instance;
    if (instance.objects.comp == nullptr) {
        init_id_tree(&instance.objects);
        init_id_tree(&instance.types);
        avl_init(&instance.paths, avl_strcmp, false, nullptr);
    }
    return instance;
}

bus_object *object_of(avl_node *by_path)
{
    return by_path != nullptr ? container_of(by_path, bus_object, by_path) : nullptr;
}

resource_cost cost_of(const blob_attr *signature)
{
    return {.bytes = blob_pad_len(signature), .types = 1};
}

resource_cost cost_of(const char *path)
{
    return {.bytes = path != nullptr ? strlen(path) : 0, .objects = 1};
}

void type_release(object_type *type)
{
    if (type == nullptr || --type->users) {
        return;
    }
    avl_delete(&registry().types, &type->by_id);
    discharge(type->payer, cost_of(type->signature));
    free(type->signature);
    free(type);
}

bool is_sound(const blob_attr *signature)
{
    const blob_attr *member;
    size_t rem;

    blob_for_each_attr(member, signature, rem)
    {
        if (!blobmsg_check_attr(member, true)) {
            return false;
        }
    }
    return true;
}

// Null when a budget is used up or memory is missing.
object_type *type_new(user_account *account, const blob_attr *signature)
{
    if (!charge(account, cost_of(signature))) {
        return nullptr;
    }
    auto *type = static_cast<object_type *>(calloc(1, sizeof(object_type)));
    if (type != nullptr) {
        type->signature = blob_memdup(signature);
    }
    if (type == nullptr || type->signature == nullptr ||
        !file_under_new_id(&registry().types, &type->by_id, &type->id)) {
        discharge(account, cost_of(signature));
        free(type != nullptr ? type->signature : nullptr);
        free(type);
        return nullptr;
    }
    type->payer = account;
    type->users = 1;
    return type;
}

object_type *type_shared(uint32_t id)
{
    object_type *type;
    type = avl_find_element(&registry().types, &id, type, by_id);
    if (type != nullptr) {
        type->users++;
    }
    return type;
}

// A status. *type stays null, and the object is never listed, when a member of the signature is not a sound,
// named value, or when there is no such type.
int type_of_request(user_account *account, const received_request &msg, object_type **type)
{
    const blob_attr *signature = msg.attr[UBUS_ATTR_SIGNATURE];
    *type = nullptr;
    if (signature != nullptr && is_sound(signature)) {
        *type = type_new(account, signature);
        return *type != nullptr ? UBUS_STATUS_OK : UBUS_STATUS_NO_MEMORY;
    }
    if (signature == nullptr && msg.attr[UBUS_ATTR_OBJTYPE] != nullptr) {
        *type = type_shared(blob_get_u32(msg.attr[UBUS_ATTR_OBJTYPE]));
    }
    return UBUS_STATUS_OK;
}

bool file_path(bus_object *object, const char *path)
{
    object->path = copy_text(path);
    object->by_path.key = object->path;
    if (object->path != nullptr && avl_insert(&registry().paths, &object->by_path) == 0) {
        return true;
    }
    free(object->path);
    object->path = nullptr;
    return false;
}

// Already charged to the client. Null when the path is taken or memory is missing.
bus_object *object_new(bus_client *client, const char *path, object_type *type)
{
    auto *object = static_cast<bus_object *>(calloc(1, sizeof(bus_object)));
    if (object == nullptr || !file_under_new_id(&registry().objects, &object->by_id, &object->id)) {
        free(object);
        return nullptr;
    }
    if (path != nullptr && !file_path(object, path)) {
        avl_delete(&registry().objects, &object->by_id);
        free(object);
        return nullptr;
    }
    object->type = type;
    object->client = client;
    INIT_LIST_HEAD(&object->subscribers);
    INIT_LIST_HEAD(&object->subscriptions);
    INIT_LIST_HEAD(&object->patterns);
    list_add(&object->in_client, &client->objects);
    return object;
}

} // namespace

bus_object *object_find(uint32_t id)
{
    bus_object *object;
    return avl_find_element(&registry().objects, &id, object, by_id);
}

bus_object *object_find_path(const char *path)
{
    return object_of(avl_find(&registry().paths, path));
}

bus_object *object_first_path()
{
    if (avl_is_empty(&registry().paths)) {
        return nullptr;
    }
    bus_object *object = nullptr;
    return avl_first_element(&registry().paths, object, by_path);
}

bus_object *object_next_path(bus_object *object)
{
    return avl_is_last(&registry().paths, &object->by_path) ? nullptr : avl_next_element(object, by_path);
}

bus_object *object_after_path(const char *path)
{
    bus_object *object = object_of(avl_find_greaterequal(&registry().paths, path));
    return object != nullptr && strcmp(object->path, path) == 0 ? object_next_path(object) : object;
}

void object_free(bus_object *object)
{
    drop_subscriptions(object);
    drop_patterns(object);
    if (object->path != nullptr) {
        announce_object("ubus.object.remove", object);
        avl_delete(&registry().paths, &object->by_path);
    }
    avl_delete(&registry().objects, &object->by_id);
    list_del(&object->in_client);
    discharge(object->client->account, cost_of(object->path));
    type_release(object->type);
    free(object->path);
    free(object);
}

int handle_add_object(bus_client *client, const received_request &msg)
{
    const char *path =
        msg.attr[UBUS_ATTR_OBJPATH] != nullptr ? blob_get_string(msg.attr[UBUS_ATTR_OBJPATH]) : nullptr;
    if (path != nullptr && (!path[0] || !acl_allows(client, access_kind::publish, path))) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!charge(client->account, cost_of(path))) {
        return UBUS_STATUS_NO_MEMORY;
    }
    object_type *type;
    const int status = type_of_request(client->account, msg, &type);
    bus_object *object = status ? nullptr : object_new(client, path, type);
    if (object == nullptr) {
        discharge(client->account, cost_of(path));
        type_release(type);
        return status ? status : static_cast<int>(UBUS_STATUS_INVALID_ARGUMENT);
    }
    if (object->path != nullptr) {
        announce_object("ubus.object.add", object);
    }
    message_builder body;
    body.put_u32(UBUS_ATTR_OBJID, object->id);
    if (object->type != nullptr && msg.attr[UBUS_ATTR_SIGNATURE] != nullptr) {
        body.put_u32(UBUS_ATTR_OBJTYPE, object->type->id);
    }
    send_to(client, UBUS_MSG_DATA, msg.hdr.seq, msg.hdr.peer, body);
    return UBUS_STATUS_OK;
}

int handle_remove_object(bus_client *client, const received_request &msg)
{
    if (msg.attr[UBUS_ATTR_OBJID] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const uint32_t id = blob_get_u32(msg.attr[UBUS_ATTR_OBJID]);
    if (id >= UBUS_SYSTEM_OBJECT_EVENT && id <= UBUS_SYSTEM_OBJECT_MONITOR) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    bus_object *object = object_find(id);
    if (object == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (object->client != client) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    message_builder body;
    body.put_u32(UBUS_ATTR_OBJID, object->id);
    // With the type's last object its id is in the answer, so that the client forgets it.
    if (object->type != nullptr && object->type->users == 1) {
        body.put_u32(UBUS_ATTR_OBJTYPE, object->type->id);
    }
    send_to(client, UBUS_MSG_DATA, msg.hdr.seq, msg.hdr.peer, body);
    object_free(object);
    return UBUS_STATUS_OK;
}

} // namespace broker
