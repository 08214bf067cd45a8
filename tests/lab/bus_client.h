// A synchronous client of a private bus, speaking JSON.
#pragma once

#include "bus_headers.h"

#include <string>

namespace lab_test {

struct Answer {
    int status; // a bus status
    std::string json;
};

class BusClient {
public:
    // Connects as soon as there is a broker.
    explicit BusClient(const std::string &socket);
    BusClient(const BusClient &) = delete;
    BusClient &operator=(const BusClient &) = delete;
    ~BusClient();

    Answer call(const std::string &object, const std::string &method, const std::string &arguments = "{}");

private:
    ubus_context *context = nullptr;
};

} // namespace lab_test
