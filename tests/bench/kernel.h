/*
 * The kernel asked directly: one routing netlink socket, a request and its acknowledgement at a time, nothing
 * else. This is what a change costs at the very least. What fails ends the program.
 */
#pragma once

#include <cstdint>
#include <libmnl/libmnl.h>
#include <string>

namespace bench {

class kernel {
public:
    kernel();
    kernel(const kernel &) = delete;
    kernel &operator=(const kernel &) = delete;
    ~kernel() { mnl_socket_close(socket_); }

    struct route {
        uint32_t table;
        uint32_t destination; // host byte order, as the gateway
        uint8_t prefix;
        uint32_t gateway;
        uint32_t metric;
    };
    void add_route(const route &which);
    void delete_route(const route &which);

    void add_vlan(uint32_t lower, const std::string &name, uint16_t vlan);
    void add_bridge(const std::string &name);
    void set_mac(uint32_t device, const uint8_t (&mac)[6]);
    void set_up(uint32_t device);
    void set_bridge(uint32_t device, uint32_t bridge);
    void add_address(uint32_t device, uint32_t address, uint8_t prefix);
    void delete_device(uint32_t device);

private:
    void exchange(const char *what, nlmsghdr *request);
    mnl_socket *socket_;
    uint32_t sequence_ = 0;
};

// Index of a device by its name.
uint32_t device(const std::string &name);

} // namespace bench
