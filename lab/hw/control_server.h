// The switch's control socket: a UNIX stream socket, one command to a line, one line of JSON in reply. Errors
// are
// {"error":TEXT}, success without a result {"ok":true}. Any number of connections.
//
//   link PORT up|down [10|100|1000 [half|full]]   plug or pull the cable; the far end's best mode
//   power PORT on|off     the PHY's power-down bit, as its management bus would set it
//   status | mac | flush  everything but the addresses; the address table; forget it
//   capture PORT          from here on the connection carries a pcap file of the port's frames, both
//   directions
//
// PORT is a switch port number or a device name (port0..port4, eth0, eth1). A capture whose reader is slow
// loses frames, never the switch's time. A line longer than 1024 bytes ends its connection.
#pragma once

#include "event_loop.h"
#include "virtual_switch.h"

#include <string>
#include <unordered_map>

namespace lab {

class ControlServer {
public:
    ControlServer(EventLoop &event_loop, VirtualSwitch &virtual_switch)
        : loop_(event_loop), device_(virtual_switch)
    {}
    ~ControlServer();

    // An empty string, or what failed. Replaces a socket left behind by a switch that is gone.
    std::string listen(const std::string &socket_path);

private:
    struct Connection {
        UniqueFd fd;
        std::string input;
        std::string output;
        bool capturing = false;
        bool ended = false; // no more lines; what is owed for those that came is still sent
        bool dead = false;
    };

    void accept_all();
    void serve(int fd, uint32_t events);
    bool take_input(Connection &connection, bool hung_up);
    void run_lines(Connection &connection);
    void send(Connection &connection, const std::string &text);
    void drain(Connection &connection);
    void finish(int fd);
    std::string execute(Connection &connection, const std::string &line);
    std::string start_capture(Connection &connection, unsigned port);

    EventLoop &loop_;
    VirtualSwitch &device_;
    std::string path_;
    UniqueFd listener_;
    std::unordered_map<int, Connection> connections_;
};

} // namespace lab
