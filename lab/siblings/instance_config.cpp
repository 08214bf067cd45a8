#include "instance_config.h"

#include <array>
#include <cstdlib>
#include <net/if.h>

namespace lab {

namespace {

enum Field {
    field_command,
    field_env,
    field_respawn,
    field_netdev,
    field_error,
    field_pidfile,
    field_user,
    field_group,
    field_nice,
    field_term_timeout,
    field_reload_signal,
    field_data,
    field_count
};

constexpr std::array<blobmsg_policy, field_count> policy = {{
    {"command", BLOBMSG_TYPE_ARRAY},
    {"env", BLOBMSG_TYPE_TABLE},
    {"respawn", BLOBMSG_TYPE_ARRAY},
    {"netdev", BLOBMSG_TYPE_ARRAY},
    {"error", BLOBMSG_TYPE_ARRAY},
    {"pidfile", BLOBMSG_TYPE_STRING},
    {"user", BLOBMSG_TYPE_STRING},
    {"group", BLOBMSG_TYPE_STRING},
    {"nice", BLOBMSG_TYPE_INT32},
    {"term_timeout", BLOBMSG_TYPE_INT32},
    {"reload_signal", BLOBMSG_TYPE_INT32},
    {"data", BLOBMSG_TYPE_TABLE},
}};

// The strings of an array; anything else in it, or a malformed member, makes it unsound.
std::vector<std::string> strings(blob_attr *array, bool &sound)
{
    std::vector<std::string> list;
    if (!array) {
        return list;
    }
    if (blobmsg_check_array(array, BLOBMSG_TYPE_STRING) < 0) {
        sound = false;
        return list;
    }
    blob_attr *member = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(member, array, left)
    {
        list.emplace_back(blobmsg_get_string(member));
    }
    return list;
}

std::vector<std::pair<std::string, std::string>> pairs(blob_attr *table, bool &sound)
{
    std::vector<std::pair<std::string, std::string>> list;
    if (!table) {
        return list;
    }
    if (blobmsg_check_array(table, BLOBMSG_TYPE_STRING) < 0) {
        sound = false;
        return list;
    }
    blob_attr *member = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(member, table, left)
    {
        list.emplace_back(blobmsg_name(member), blobmsg_get_string(member));
    }
    return list;
}

std::optional<Respawn> parse_respawn(blob_attr *array)
{
    if (!array) {
        return std::nullopt;
    }
    Respawn respawn;
    bool sound = true;
    const std::vector<std::string> values = strings(array, sound);
    const std::array<int *, 3> targets = {&respawn.threshold, &respawn.timeout, &respawn.retry};
    for (size_t i = 0; i < targets.size() && i < values.size(); i++) {
        *targets[i] = atoi(values[i].c_str());
    }
    return respawn;
}

std::string text(blob_attr *attr)
{
    return attr ? blobmsg_get_string(attr) : "";
}

int number(blob_attr *attr, int otherwise)
{
    return attr ? static_cast<int>(blobmsg_get_u32(attr)) : otherwise;
}

} // namespace

InstanceRequest parse_instance(const blob_attr *table)
{
    std::array<blob_attr *, field_count> tb{};
    blobmsg_parse(policy.data(), field_count, tb.data(), blobmsg_data(table),
                  static_cast<unsigned>(blobmsg_data_len(table)));
    InstanceRequest request;
    InstanceConfig &config = request.config;
    config.command = strings(tb[field_command], config.sound);
    config.env = pairs(tb[field_env], config.sound);
    config.respawn = parse_respawn(tb[field_respawn]);
    config.netdev = strings(tb[field_netdev], config.sound);
    for (const std::string &device : config.netdev) {
        config.netdev_index.push_back(if_nametoindex(device.c_str()));
    }
    config.errors = strings(tb[field_error], config.sound);
    config.pidfile = text(tb[field_pidfile]);
    config.user = text(tb[field_user]);
    config.group = text(tb[field_group]);
    config.nice = number(tb[field_nice], 0);
    config.sound &= config.nice >= -20 && config.nice <= 20;
    config.term_timeout = number(tb[field_term_timeout], config.term_timeout);
    config.reload_signal = number(tb[field_reload_signal], 0);
    request.data = copy_blob(tb[field_data]);
    return request;
}

} // namespace lab
