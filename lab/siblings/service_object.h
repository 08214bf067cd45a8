// The bus object "service" of the router's process supervisor: methods set, add, list, delete, signal, state.
// Arguments of a wrong type count as absent, as everywhere on the bus.
#pragma once

#include "bus.h"
#include "supervisor.h"

namespace lab {

class ServiceObject {
public:
    // `jail_helper` is the program that instances with a jail are started through.
    ServiceObject(OutputLog &output, const std::string &jail_helper);

    BusObject &object() { return bus_object_; }
    Supervisor &services() { return supervisor_; }

private:
    int update(blob_attr *arguments, bool replace);
    int remove(blob_attr *arguments);
    int signal(blob_attr *arguments);
    int state(blob_attr *arguments);

    BusObject bus_object_{"service"};
    Supervisor supervisor_;
};

} // namespace lab
