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

    bool running() const { return child.running(); }
    const std::string &service() const { return service_name; }
    const std::string &name() const { return instance_name; }
    void describe(blob_buf *reply) const;

private:
    enum class After { nothing, restart, removal };

    void spawn();
    void terminate();
    void exited(int status);
    void crashed_or_done();
    std::string label() const { return service_name + "/" + instance_name; }

    InstanceOwner &owner;
    OutputLog &log;
    std::string service_name;
    std::string instance_name;
    InstanceConfig config;
    BlobCopy user_data;
    Child child;
    Timer kill_timer;
    Timer respawn_timer;
    bool stopping = false;
    After after = After::nothing;
    int last_exit = 0;
    int crash_count = 0;
    int64_t started_ms = 0;
    std::string written_pidfile;
};

} // namespace lab
