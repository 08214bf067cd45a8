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
    field_limits,
    field_jail,
    field_capabilities,
    field_no_new_privs,
    field_seccomp,
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
    {"limits", BLOBMSG_TYPE_TABLE},
    {"jail", BLOBMSG_TYPE_TABLE},
    {"capabilities", BLOBMSG_TYPE_STRING},
    {"no_new_privs", BLOBMSG_TYPE_BOOL},
    {"seccomp", BLOBMSG_TYPE_STRING},
}};

// The strings of an array; anything else in it, or a malformed member, makes it unsound.
std::vector<std::string> strings(blob_attr *array, bool &sound)
{
    std::vector<std::string> list;
    if (array == nullptr) {
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

Pairs pairs(blob_attr *table, bool &sound)
{
    Pairs list;
    if (table == nullptr) {
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
    if (array == nullptr) {
        return std::nullopt;
    }
    Respawn respawn;
    bool sound = true;
    const std::vector<std::string> values = strings(array, sound);
    const std::array<int *, 3> targets = {&respawn.threshold, &respawn.timeout, &respawn.retry};
    for (size_t i = 0; i < targets.size() && i < values.size(); ++i) {
        *targets[i] = atoi(values[i].c_str());
    }
    return respawn;
}

std::optional<Jail> parse_jail(blob_attr *table)
{
    if (table == nullptr) {
        return std::nullopt;
    }
    std::array<blobmsg_policy, jail_options.size() + 1> wanted{};
    std::array<blob_attr *, jail_options.size() + 1> tb{};
    for (size_t i = 0; i < jail_options.size(); ++i) {
        wanted[i] = {jail_options[i], BLOBMSG_TYPE_BOOL};
    }
    wanted.back() = {"name", BLOBMSG_TYPE_STRING};
    blobmsg_parse(wanted.data(), static_cast<int>(wanted.size()), tb.data(), blobmsg_data(table),
                  static_cast<unsigned>(blobmsg_data_len(table)));
    Jail jail;
    jail.name = tb.back() != nullptr ? blobmsg_get_string(tb.back()) : "";
    for (size_t i = 0; i < jail_options.size(); ++i) {
        jail.options.push_back(tb[i] != nullptr && blobmsg_get_bool(tb[i]));
    }
    return jail;
}

std::string text(blob_attr *attr)
{
    return attr != nullptr ? blobmsg_get_string(attr) : "";
}

int number(blob_attr *attr, int otherwise)
{
    return attr != nullptr ? static_cast<int>(blobmsg_get_u32(attr)) : otherwise;
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
    // A command that is missing or no list is a command to come; a list of nothing, or of other things, is
    // none.
    config.sound &= tb[field_command] == nullptr || !config.command.empty();
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
    config.limits = pairs(tb[field_limits], config.sound);
    config.jail = parse_jail(tb[field_jail]);
    config.capabilities = text(tb[field_capabilities]);
    config.no_new_privs = tb[field_no_new_privs] != nullptr && blobmsg_get_bool(tb[field_no_new_privs]);
    config.seccomp = text(tb[field_seccomp]);
    request.data = copy_blob(tb[field_data]);
    return request;
}

} // namespace lab
