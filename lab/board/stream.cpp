#include "stream.h"

#include "check.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <memory>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace lab {
namespace {

using Clock = std::chrono::steady_clock;
constexpr uint32_t mark = 0x73747265; // of our own packets, among those of others

volatile sig_atomic_t ending = 0;

struct Packet {
    uint32_t mark;
    uint32_t number;
};

sockaddr_in address_of(const StreamPlan &plan)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(plan.port));
    if (inet_pton(AF_INET, plan.address.c_str(), &address.sin_addr) != 1) {
        throw std::runtime_error(plan.address + ": no IPv4 address");
    }
    return address;
}

// What the packets travel on.
class Wire {
public:
    Wire(const StreamPlan &plan, int type, int protocol)
        : fd_(socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol))
    {
        check(fd_.get(), "socket");
        const sockaddr_in address = address_of(plan);
        if (connect(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0 &&
            errno != EINPROGRESS) {
            check(-1, plan.address);
        }
    }
    virtual ~Wire() = default;
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    int fd() const { return fd_.get(); }
    // False where the packet did not leave.
    virtual bool send(uint32_t number) = 0;
    // Appends the numbers that have come back.
    virtual void receive(std::vector<uint32_t> &numbers) = 0;
    // How long what is still on its way may take.
    virtual std::chrono::seconds last_wait() const = 0;

private:
    UniqueFd fd_;
};

// Echo requests, each with another identifier: to a firewall each one is a new connection.
class EchoWire final : public Wire {
public:
    explicit EchoWire(const StreamPlan &plan) : Wire(plan, SOCK_RAW, IPPROTO_ICMP) {}

    std::chrono::seconds last_wait() const override { return std::chrono::seconds(1); }

    bool send(uint32_t number) override
    {
        struct {
            icmphdr header;
            Packet packet;
        } request{{ICMP_ECHO, 0, 0, {}}, {mark, number}};
        request.header.un.echo = {htons(static_cast<uint16_t>(number)), htons(1)};
        std::array<uint16_t, sizeof(request) / 2> words{};
        std::memcpy(words.data(), &request, sizeof(request));
        uint32_t sum = 0;
        for (uint16_t word : words) {
            sum += word;
        }
        sum = (sum & 0xffff) + (sum >> 16);
        request.header.checksum = static_cast<uint16_t>(~(sum + (sum >> 16)));
        return ::send(fd(), &request, sizeof(request), 0) == sizeof(request);
    }

    void receive(std::vector<uint32_t> &numbers) override
    {
        std::array<char, 2048> buffer{};
        for (ssize_t n = 0; (n = recv(fd(), buffer.data(), buffer.size(), 0)) > 0;) {
            const size_t head = size_t{4} * (static_cast<unsigned char>(buffer[0]) & 0xfU);
            if (static_cast<size_t>(n) < head + sizeof(icmphdr) + sizeof(Packet) ||
                buffer[head] != ICMP_ECHOREPLY) {
                continue;
            }
            Packet packet{};
            std::memcpy(&packet, buffer.data() + head + sizeof(icmphdr), sizeof(packet));
            if (packet.mark == mark) {
                numbers.push_back(packet.number);
            }
        }
    }
};

// One connection, which must live through everything.
class TcpWire final : public Wire {
public:
    explicit TcpWire(const StreamPlan &plan) : Wire(plan, SOCK_STREAM, 0)
    {
        const int on = 1;
        check(setsockopt(fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)), "TCP_NODELAY");
        pollfd connected{fd(), POLLOUT, 0};
        int error = 0;
        socklen_t size = sizeof(error);
        poll(&connected, 1, 10000);
        check(getsockopt(fd(), SOL_SOCKET, SO_ERROR, &error, &size), "SO_ERROR");
        if (error != 0 || (connected.revents & POLLOUT) == 0) {
            throw std::runtime_error(plan.address + ": no connection");
        }
    }

    // What is lost is sent once more, after pauses that double.
    std::chrono::seconds last_wait() const override { return std::chrono::seconds(120); }

    bool send(uint32_t number) override
    {
        const Packet packet{mark, number};
        const ssize_t n = ::send(fd(), &packet, sizeof(packet), MSG_NOSIGNAL);
        if (n == sizeof(packet)) {
            return true;
        }
        if (n >= 0 || errno != EAGAIN) {
            throw std::runtime_error("the connection is broken");
        }
        return false; // as much is on its way as the connection takes
    }

    void receive(std::vector<uint32_t> &numbers) override
    {
        std::array<char, 4096> buffer{};
        ssize_t n = 0;
        while ((n = recv(fd(), buffer.data(), buffer.size(), 0)) > 0) {
            rest_.append(buffer.data(), static_cast<size_t>(n));
        }
        if (n == 0 || errno != EAGAIN) {
            throw std::runtime_error("the connection is broken");
        }
        size_t at = 0;
        for (; rest_.size() - at >= sizeof(Packet); at += sizeof(Packet)) {
            Packet packet{};
            std::memcpy(&packet, rest_.data() + at, sizeof(packet));
            numbers.push_back(packet.number);
        }
        rest_.erase(0, at);
    }

private:
    std::string rest_;
};

class Stream {
public:
    Stream(Wire &wire, std::chrono::microseconds every) : wire_(wire), every_(every) {}

    void run()
    {
        Clock::time_point due = Clock::now();
        Clock::time_point end = Clock::time_point::max();
        while (Clock::now() < end && !(ending && came_back_ == sent_)) {
            if (ending && end == Clock::time_point::max()) {
                end = Clock::now() + wire_.last_wait();
            }
            if (!ending && Clock::now() >= due) {
                sent_ += wire_.send(sent_) ? 1 : 0;
                // Late is late: a burst that makes up for it would be another kind of traffic.
                due = std::max(due + every_, Clock::now());
            }
            take(ending ? end : due);
        }
    }

    int report() const
    {
        const auto silence = std::chrono::duration<double, std::milli>(silence_).count();
        printf("%" PRIu32 " sent, %" PRIu32 " lost, longest silence %.1f ms\n", sent_, sent_ - came_back_,
               silence);
        return sent_ == came_back_ ? 0 : 1;
    }

private:
    void take(Clock::time_point until)
    {
        const auto left = std::max(until - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec wait{seconds.count(),
                            static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
        pollfd readable{wire_.fd(), POLLIN, 0};
        if (ppoll(&readable, 1, &wait, nullptr) <= 0) {
            return;
        }
        std::vector<uint32_t> numbers;
        wire_.receive(numbers);
        if (numbers.empty()) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (came_back_ == 0) {
            puts("ready");
            fflush(stdout);
        } else {
            silence_ = std::max(silence_, now - last_);
        }
        last_ = now;
        came_back_ += static_cast<uint32_t>(numbers.size());
    }

    Wire &wire_;
    std::chrono::microseconds every_;
    uint32_t sent_ = 0;
    uint32_t came_back_ = 0;
    Clock::time_point last_;
    Clock::duration silence_{};
};

} // namespace

int run_stream(const StreamPlan &plan)
{
    for (int number : {SIGINT, SIGTERM}) {
        struct sigaction action {};
        action.sa_handler = [](int) { ending = 1; };
        check(sigaction(number, &action, nullptr), "signal");
    }
    std::unique_ptr<Wire> wire;
    if (plan.port == 0) {
        wire = std::make_unique<EchoWire>(plan);
    } else {
        wire = std::make_unique<TcpWire>(plan);
    }
    Stream stream(*wire, plan.every);
    stream.run();
    return stream.report();
}

} // namespace lab
