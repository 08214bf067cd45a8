/*
 * What the tests of devices, addresses, routes and rules share.
 *
 * ip()            Runs ip(8) with the words of a line and gives its output; the test fails when ip does.
 * kernel_has()    In a NetworkTest: whether this kernel can create a device of a kind ("vlan", ...).
 * Monitor         Records, from its construction on, what the kernel announces about addresses, routes and
 * rules, in order, as "+address 10.0.0.1/8 v0", "-address ...", "+route 10.0.0.0/8 table 254 v0",
 *                 "-rule 10000", ...
 * NetworkTest     A sandbox with two veth pairs: v0-v1 and w0-w1. v0 and w0 are down, their peers up.
 * TwoWansTest     The same with v0 and w0 up: v0 reaches the gateways 192.0.2.254 and .253, w0
 * 198.51.100.254.
 */
#pragma once

#include "sandbox.h"

#include <string>
#include <vector>

std::string ip(const std::string &arguments);
bool kernel_has(const std::string &kind);

class Monitor {
public:
    Monitor();
    ~Monitor();
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;
    // Everything announced until now.
    std::vector<std::string> events();

private:
    int socket_ = -1;
    std::vector<std::string> events_;
};

class NetworkTest : public SandboxTest {
protected:
    void SetUp() override;
};

class TwoWansTest : public NetworkTest {
protected:
    void SetUp() override;
};

bool contains(const std::string &text, const std::string &part);
// Position of an entry, or -1.
int position(const std::vector<std::string> &events, const std::string &event);
// Expects both entries, in this order.
void expect_order(const std::vector<std::string> &events, const std::string &first, const std::string &then);
