// The bus object "dnsmasq.dhcp": keeps what its method "add" is given, in order, and appends each message to
// a file as one line of JSON. Method "dump" replies { "pools": [ ... ] } with the last 1024 of them, "clear"
// forgets them.
#pragma once

#include "bus.h"

#include <deque>
#include <string>

namespace lab {

class DhcpRecorder {
public:
    explicit DhcpRecorder(std::string record_file); // empty: no file

    BusObject &object() { return bus_object_; }

private:
    int add(blob_attr *arguments);
    void dump(blob_buf *reply) const;

    BusObject bus_object_{"dnsmasq.dhcp"};
    std::string path_;
    std::deque<BlobCopy> pools_;
};

} // namespace lab
