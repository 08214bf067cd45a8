#pragma once
// A steady stream of small packets to a host, each of which comes back: what of it is lost is what traffic
// would have lost. Runs until SIGINT or SIGTERM, then waits for what is still on its way (a second, and two
// minutes for a connection) and prints "N sent, N lost, longest silence N ms"; "ready" is printed with the
// first packet that has come back.

#include <chrono>
#include <string>

namespace lab {

struct StreamPlan {
    std::string address; // IPv4
    int port = 0;        // of a TCP server that sends back what it gets; 0: ICMP echo requests
    std::chrono::microseconds every{1000};
};

// A process status: 0 when nothing was lost, 1 when something was. Throws where it cannot begin, or where the
// connection breaks.
int run_stream(const StreamPlan &plan);

} // namespace lab
