#include "supervisor.h"

#include <cerrno>
#include <set>
#include <vector>

namespace lab {

namespace {

int status_of(int error)
{
    switch (error) {
    case 0:
        return UBUS_STATUS_OK;
    case EPERM:
        return UBUS_STATUS_PERMISSION_DENIED;
    case EINVAL:
        return UBUS_STATUS_INVALID_ARGUMENT;
    default:
        return UBUS_STATUS_NOT_FOUND;
    }
}

template <typename Map> std::vector<std::string> keys_of(const Map &map)
{
    std::vector<std::string> keys;
    keys.reserve(map.size());
    for (const auto &item : map) {
        keys.push_back(item.first);
    }
    return keys;
}

} // namespace

void Supervisor::gone(Instance &instance)
{
    // Taken out first and destroyed last: the names are its own.
    const auto removed = services_.at(instance.service()).instances.extract(instance.name());
    vanish_if_done(instance.service());
}

void Supervisor::vanish_if_done(const std::string &name)
{
    const auto found = services_.find(name);
    if (found != services_.end() && found->second.doomed && found->second.instances.empty()) {
        services_.erase(found);
    }
}

void Supervisor::apply_instances(const std::string &name, Service &service, blob_attr *table, bool replace)
{
    std::set<std::string> named;
    blob_attr *member = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(member, table, left)
    {
        if (!blobmsg_check_attr(member, true) || blobmsg_type(member) != BLOBMSG_TYPE_TABLE) {
            continue;
        }
        const std::string instance = blobmsg_name(member);
        InstanceRequest request = parse_instance(member);
        if (!request.config.sound) {
            log_.line(name + "/" + instance,
                      "dropped: no list of words as its command, or an impossible setting");
            continue;
        }
        named.insert(instance);
        auto &slot = service.instances[instance];
        if (!slot) {
            slot = std::make_unique<Instance>(static_cast<InstanceOwner &>(*this), log_, name, instance);
        }
        slot->apply(std::move(request), service.autostart);
    }
    for (const std::string &instance : replace ? keys_of(service.instances) : std::vector<std::string>()) {
        if (!named.contains(instance)) {
            service.instances.at(instance)->remove();
        }
    }
}

int Supervisor::update(const ServiceRequest &request, bool replace)
{
    Service &service = services_[request.name];
    service.doomed = false;
    service.autostart = request.autostart;
    if (request.data != nullptr) {
        service.user_data = copy_blob(request.data);
    }
    apply_instances(request.name, service, request.instances, replace);
    return UBUS_STATUS_OK;
}

int Supervisor::remove(const std::string &name)
{
    const auto found = services_.find(name);
    if (found == services_.end()) {
        return UBUS_STATUS_NOT_FOUND;
    }
    // The service must outlive the loop, even if each instance is gone at once: it is doomed only afterwards.
    for (const std::string &instance : keys_of(found->second.instances)) {
        found->second.instances.at(instance)->remove();
    }
    found->second.doomed = true;
    vanish_if_done(name);
    return UBUS_STATUS_OK;
}

int Supervisor::remove(const std::string &name, const std::string &instance)
{
    const auto found = services_.find(name);
    if (found == services_.end() || !found->second.instances.contains(instance)) {
        return UBUS_STATUS_NOT_FOUND;
    }
    found->second.instances.at(instance)->remove();
    return UBUS_STATUS_OK;
}

int Supervisor::signal(const std::string &name, const std::string *instance, int number)
{
    const auto found = services_.find(name);
    if (found == services_.end()) {
        return UBUS_STATUS_NOT_FOUND;
    }
    const auto &instances = found->second.instances;
    if (instance != nullptr) {
        const auto one = instances.find(*instance);
        return one == instances.end() ? UBUS_STATUS_NOT_FOUND : status_of(one->second->send_signal(number));
    }
    int result = UBUS_STATUS_OK;
    for (const auto &[key, one] : instances) {
        const int status = one->running() ? status_of(one->send_signal(number)) : UBUS_STATUS_OK;
        result = status ? status : result;
    }
    return result;
}

int Supervisor::set_state(const std::string &name, bool started)
{
    const auto found = services_.find(name);
    // A service on its way out cannot be called back by this: it would never vanish.
    if (found == services_.end() || found->second.doomed) {
        return UBUS_STATUS_NOT_FOUND;
    }
    for (const auto &[key, instance] : found->second.instances) {
        if (started) {
            instance->start();
        } else {
            instance->stop();
        }
    }
    return UBUS_STATUS_OK;
}

void Supervisor::list(blob_buf *reply, const std::string &wanted) const
{
    for (const auto &[name, service] : services_) {
        if (!wanted.empty() && name != wanted) {
            continue;
        }
        void *table = blobmsg_open_table(reply, name.c_str());
        if (!service.autostart) {
            blobmsg_add_u8(reply, "autostart", 0);
        }
        if (service.user_data) {
            blobmsg_add_blob(reply, service.user_data.get());
        }
        if (!service.instances.empty()) {
            void *instances = blobmsg_open_table(reply, "instances");
            for (const auto &[key, instance] : service.instances) {
                instance->describe(reply);
            }
            blobmsg_close_table(reply, instances);
        }
        blobmsg_close_table(reply, table);
    }
}

void Supervisor::remove_all()
{
    for (const std::string &name : keys_of(services_)) {
        remove(name);
    }
}

} // namespace lab
