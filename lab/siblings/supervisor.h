// The services of the lab's router and the processes they consist of. Knows nothing of the bus: requests come
// in as parsed values. Results are bus status numbers (UBUS_STATUS_...).
#pragma once

#include "instance.h"

#include <map>
#include <memory>
#include <string>

namespace lab {

struct ServiceRequest {
    std::string name;
    blob_attr *instances = nullptr; // table of tables, or null
    blob_attr *data = nullptr;
    bool autostart = true;
};

class Supervisor final : private InstanceOwner {
public:
    Supervisor(OutputLog &output, std::string jail_helper) : log_(output), helper_(std::move(jail_helper)) {}

    // Creates or updates. With `replace`, instances that the request does not name are stopped and removed.
    int update(const ServiceRequest &request, bool replace);
    int remove(const std::string &service);
    int remove(const std::string &service, const std::string &instance);
    int signal(const std::string &service, const std::string *instance, int number);
    int set_state(const std::string &service, bool started);
    // Adds a table per service to the reply; an empty name means all.
    void list(blob_buf *reply, const std::string &service) const;

    void remove_all();
    bool empty() const { return services_.empty(); }

private:
    struct Service {
        bool autostart = true;
        bool doomed = false; // vanishes with its last instance
        BlobCopy user_data;
        std::map<std::string, std::unique_ptr<Instance>> instances;
    };

    void gone(Instance &instance) override;
    const std::string &jail_helper() const override { return helper_; }
    void apply_instances(const std::string &name, Service &service, blob_attr *table, bool replace);
    void vanish_if_done(const std::string &name);

    OutputLog &log_;
    std::string helper_;
    std::map<std::string, Service> services_;
};

} // namespace lab
