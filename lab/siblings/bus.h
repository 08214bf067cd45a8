// The connection to the bus and the objects offered on it. A broker that goes away is asked for again every
// 100 ms, and the objects are offered again when it is back.
#pragma once

#include "blob_copy.h"
#include "uloop_wrap.h"

#include <functional>
#include <string>
#include <vector>

namespace lab {

class Bus;

// One object: a name and methods with their argument policies. Stays where it is once offered.
class BusObject {
public:
    // The handler gets the arguments and may reply; it returns a bus status.
    using Handler = std::function<int(blob_attr *arguments, const std::function<void(blob_attr *)> &reply)>;

    explicit BusObject(std::string object_name) : name_(std::move(object_name)) {}
    BusObject(const BusObject &) = delete;
    BusObject &operator=(const BusObject &) = delete;

    void add_method(const char *method, const blobmsg_policy *policy, int policy_count, Handler handler);

private:
    friend class Bus;

    struct Node {
        ubus_object object;
        BusObject *self;
    };

    static int dispatch(ubus_context *context, ubus_object *object, ubus_request_data *request,
                        const char *method, blob_attr *arguments);

    std::string name_;
    std::vector<ubus_method> methods_;
    std::vector<Handler> handlers_;
    ubus_object_type type_{};
    Node node_{};
};

class Bus {
public:
    explicit Bus(std::string socket_path);
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;
    ~Bus();

    // Connects as soon as there is a broker, then calls back once.
    void start(std::function<void()> on_connected);
    // A bus status; the object must outlive the bus.
    int offer(BusObject &object);

private:
    struct Node {
        ubus_context context;
        Bus *self;
    };

    void connect();

    Node node_{};
    std::string path_;
    std::function<void()> connected_callback_;
    Timer retry_;
    bool had_connection_ = false;
    bool connected_ = false;
};

} // namespace lab
