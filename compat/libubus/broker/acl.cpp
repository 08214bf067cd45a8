// What users other than root may do, from JSON files that only root can write.
#include "broker.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr off_t max_file_size = 1 << 20;

struct access_grant {
    list_head list;
    bool to_group;
    uint32_t owner; // user or group id
    access_kind access;
    char *name;   // exact, or the beginning when it ends with '*'
    char *method; // of a call; "*" is any
};

list_head grants = LIST_HEAD_INIT(grants);
uint32_t sequence = 0;

struct grant_holder {
    bool is_group;
    uint32_t id;
};

bool name_matches(const char *pattern, const char *name)
{
    const size_t len = strlen(pattern);
    if (len && pattern[len - 1] == '*') {
        return strncmp(pattern, name, len - 1) == 0;
    }
    return strcmp(pattern, name) == 0;
}

bool holds(const peer_identity &identity, const access_grant *grant)
{
    if (!grant->to_group) {
        return identity.uid == grant->owner;
    }
    for (size_t i = 0; i < identity.group_count; i++) {
        if (identity.groups[i] == grant->owner) {
            return true;
        }
    }
    return identity.gid == grant->owner;
}

void add_grant(const grant_holder &holder, access_kind access, const char *name, const char *method)
{
    auto *grant = static_cast<access_grant *>(calloc(1, sizeof(access_grant)));
    if (grant == nullptr) {
        return;
    }
    grant->to_group = holder.is_group;
    grant->owner = holder.id;
    grant->access = access;
    grant->name = copy_text(name);
    grant->method = copy_text(method);
    if (grant->name == nullptr || (method != nullptr && grant->method == nullptr)) {
        free(grant->name);
        free(grant->method);
        free(grant);
        return;
    }
    list_add_tail(&grant->list, &grants);
}

// One grant for each text of an array; the text is the name, or the method of the given name.
void add_grants(const grant_holder &holder, access_kind access, const char *name, blob_attr *array)
{
    blob_attr *item;
    size_t rem;

    if (array == nullptr || blobmsg_check_array(array, BLOBMSG_TYPE_STRING) < 0) {
        return;
    }
    blobmsg_for_each_attr(item, array, rem)
    {
        const char *text = blobmsg_get_string(item);
        add_grant(holder, access, name != nullptr ? name : text, name != nullptr ? text : nullptr);
    }
}

void add_calls(const grant_holder &holder, blob_attr *table)
{
    static const blobmsg_policy policy[] = {{"methods", BLOBMSG_TYPE_ARRAY}};
    blob_attr *object;
    size_t rem;

    if (table == nullptr || blobmsg_check_array(table, BLOBMSG_TYPE_TABLE) < 0) {
        return;
    }
    blobmsg_for_each_attr(object, table, rem)
    {
        blob_attr *methods;
        blobmsg_parse_attr(policy, 1, &methods, object);
        add_grants(holder, access_kind::call, blobmsg_name(object), methods);
    }
}

bool find_holder(blob_attr *user, blob_attr *group, grant_holder *holder)
{
    if (user != nullptr) {
        const passwd *entry = getpwnam(blobmsg_get_string(user));
        *holder = {false, entry != nullptr ? entry->pw_uid : 0};
        return entry != nullptr;
    }
    if (group != nullptr) {
        const struct group *entry = getgrnam(blobmsg_get_string(group));
        *holder = {true, entry != nullptr ? entry->gr_gid : 0};
        return entry != nullptr;
    }
    return false;
}

bool load_text(const char *text)
{
    enum { user, group, access, publish, subscribe, listen, send, count };
    static const blobmsg_policy policy[count] = {
        {"user", BLOBMSG_TYPE_STRING},   {"group", BLOBMSG_TYPE_STRING},    {"access", BLOBMSG_TYPE_TABLE},
        {"publish", BLOBMSG_TYPE_ARRAY}, {"subscribe", BLOBMSG_TYPE_ARRAY}, {"listen", BLOBMSG_TYPE_ARRAY},
        {"send", BLOBMSG_TYPE_ARRAY}};
    message_builder file;
    blob_attr *entry[count];
    grant_holder holder;

    if (!file.ok || !blobmsg_add_json_from_string(&file, text)) {
        return false;
    }
    blobmsg_parse_attr(policy, count, entry, file.head);
    if (!find_holder(entry[user], entry[group], &holder)) {
        return false;
    }
    add_calls(holder, entry[access]);
    add_grants(holder, access_kind::publish, nullptr, entry[publish]);
    add_grants(holder, access_kind::subscribe, nullptr, entry[subscribe]);
    add_grants(holder, access_kind::listen, nullptr, entry[listen]);
    add_grants(holder, access_kind::send, nullptr, entry[send]);
    return true;
}

bool read_whole(int fd, char *text, size_t size)
{
    while (size > 0) {
        const ssize_t got = read(fd, text, size);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            return false;
        }
        text += got > 0 ? got : 0;
        size -= got > 0 ? static_cast<size_t>(got) : 0;
    }
    return true;
}

// Interrupted by a signal, it is tried again.
int open_again(int dir_fd, const char *name, int flags)
{
    int fd;
    do {
        fd = openat(dir_fd, name, flags | O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// The file's text, malloc'ed; null when it cannot be read or others than root could have written it.
char *read_trusted(int dir_fd, const char *name)
{
    const int fd = open_again(dir_fd, name, O_NONBLOCK);
    if (fd < 0) {
        return nullptr;
    }
    struct stat info = {};
    char *text = nullptr;
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == 0 && info.st_gid == 0 &&
        !(info.st_mode & (S_IWGRP | S_IWOTH)) && info.st_size <= max_file_size) {
        const auto size = static_cast<size_t>(info.st_size);
        text = static_cast<char *>(calloc(1, size + 1));
        if (text != nullptr && !read_whole(fd, text, size)) {
            free(text);
            text = nullptr;
        }
    }
    close(fd);
    return text;
}

int json_files_only(const dirent *entry)
{
    const size_t len = strlen(entry->d_name);
    return static_cast<int>(entry->d_name[0] != '.' && len > 5 &&
                            strcmp(entry->d_name + len - 5, ".json") == 0);
}

} // namespace

bool acl_allows(const bus_client *client, access_kind access, const char *name, const char *method)
{
    if (client->identity.uid == 0) {
        return true;
    }
    access_grant *grant;
    list_for_each_entry(grant, &grants, list)
    {
        if (grant->access != access || !holds(client->identity, grant) || !name_matches(grant->name, name)) {
            continue;
        }
        if (grant->method == nullptr || (method != nullptr && name_matches(grant->method, method))) {
            return true;
        }
    }
    return false;
}

void acl_free()
{
    while (!list_empty(&grants)) {
        access_grant *grant = list_first_entry(&grants, access_grant, list);
        list_del(&grant->list);
        free(grant->name);
        free(grant->method);
        free(grant);
    }
}

void acl_load(const char *dir)
{
    acl_free();
    const int dir_fd = open_again(AT_FDCWD, dir, O_DIRECTORY);
    dirent **files = nullptr;
    const int count = dir_fd < 0 ? 0 : scandirat(dir_fd, ".", &files, json_files_only, alphasort);

    for (int i = 0; i < count; i++) {
        char *text = read_trusted(dir_fd, files[i]->d_name);
        if (text == nullptr || !load_text(text)) {
            syslog(LOG_ERR, "access file %s/%s is left out: %s", dir, files[i]->d_name,
                   text != nullptr ? "no known user or group, or not a JSON object"
                                   : "not a file that only root can write");
        }
        free(text);
        free(files[i]);
    }
    free(files);
    if (dir_fd >= 0) {
        close(dir_fd);
    }
}

void acl_reload(const char *dir)
{
    acl_load(dir);
    announce_acl_sequence(++sequence);
}

int handle_acl_call(bus_client *client, const received_request &msg, const char *method)
{
    if (strcmp(method, "query") != 0) {
        return UBUS_STATUS_INVALID_COMMAND;
    }
    message_builder body;
    body.put_u32(UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_ACL);
    void *data = blob_nest_start(&body, UBUS_ATTR_DATA);
    body.check(data);
    if (body.ok) {
        // Files without extra data for services leave the list empty.
        body.ok = blobmsg_add_u32(&body, "seq", sequence) == 0;
        void *list = blobmsg_open_array(&body, "acl");
        body.check(list);
        if (body.ok) {
            blobmsg_close_array(&body, list);
            blob_nest_end(&body, data);
        }
    }
    send_to(client, UBUS_MSG_DATA, msg.hdr.seq, msg.hdr.peer, body);
    return UBUS_STATUS_OK;
}

} // namespace broker
