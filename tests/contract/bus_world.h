/*
 * A private bus for one test.
 *
 * Broker: Runs ubusd on the bus's usual socket (the sandbox has a /run of its own). Constructed means: it
 * answers.
 *
 * Peer: Another process on the bus with one object. Each request is noted as "METHOD JSON". The methods:
 * "add", "delete", "run" and "echo" give the status that was set for the object, at first 0; "echo" also
 * sends its message back; "mute" never ends.
 *
 * BusTest: A sandbox; the test is skipped where there is none.
 */
#pragma once

#include "sandbox.h"

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

class Broker {
public:
    Broker();
    ~Broker();
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;
    void start();
    void kill(); // with SIGKILL, so that the socket file stays
    void stand_still();
    void go_on();

private:
    pid_t pid_ = -1;
};

class Peer {
public:
    // on_the_bus: wait until the object is registered.
    explicit Peer(const std::string &object, bool on_the_bus = true);
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    void set_status(int status);
    std::vector<std::string> requests() const;

private:
    std::string object_;
    pid_t pid_ = -1;
};

using BusTest = SandboxTest;

// What the bus's own command line tool prints as its list of objects.
std::string objects_on_the_bus();

// Waits for a condition; false when it does not hold within the time.
bool wait_for(const std::function<bool()> &condition, int milliseconds = 5000);
