// One supervised process: started, watched, restarted as its configuration says, stopped with SIGTERM and
// then SIGKILL. Lives in a service's table and is destroyed only after its process is gone.
#pragma once

#include "instance_config.h"
#include "output_log.h"
#include "uloop_wrap.h"

#include <string>

namespace lab {

class Instance;

// Called when a removed instance has ended: its last act, upon which the owner destroys it. Knows the program
// that instances with a jail are started through.
class InstanceOwner {
public:
    virtual void gone(Instance &instance) = 0;
    virtual const std::string &jail_helper() const = 0;

protected:
    ~InstanceOwner() = default;
};

class Instance {
public:
    Instance(InstanceOwner &instance_owner, OutputLog &output, std::string of_service, std::string own_name);
    Instance(const Instance &) = delete;
    Instance &operator=(const Instance &) = delete;

    // Takes over a configuration: starts what does not run (if `start_it`), leaves alone what runs unchanged,
    // and restarts, or signals, what runs otherwise. Also revives an instance that was being removed.
    void apply(InstanceRequest request, bool start_it);
    void start();
    void stop();
    // As stop(), then calls the owner when it is gone; at once if nothing runs.
    void remove();
    int send_signal(int number); // 0 or errno

    bool running() const { return child_.running(); }
    const std::string &service() const { return service_name_; }
    const std::string &name() const { return instance_name_; }
    void describe(blob_buf *reply) const;

private:
    enum class After { nothing, restart, removal };

    void spawn();
    void terminate();
    void exited(int status);
    void crashed_or_done();
    std::string label() const { return service_name_ + "/" + instance_name_; }

    InstanceOwner &owner_;
    OutputLog &log_;
    std::string service_name_;
    std::string instance_name_;
    InstanceConfig config_;
    BlobCopy user_data_;
    Child child_;
    Timer kill_timer_;
    Timer respawn_timer_;
    bool stopping_ = false;
    After after_ = After::nothing;
    int last_exit_ = 0;
    int crash_count_ = 0;
    int64_t started_ms_ = 0;
    std::string written_pidfile_;
};

} // namespace lab
