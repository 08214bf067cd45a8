#include "control_server.h"

#include "pcap.h"
#include "report.h"

#include <cerrno>
#include <cstring>
#include <sstream>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

namespace lab {

namespace {

constexpr size_t longest_line = 1024;
constexpr size_t capture_backlog = 4U << 20;
// A reader of replies that stops reading is cut off when this much waits for it.
constexpr size_t reply_backlog = 1U << 20;

constexpr const char *done = "{\"ok\":true}";

std::vector<std::string> words_of(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

int parse_port(const Forwarder &plane, const std::string &text)
{
    for (unsigned port = 0; port < port_count; port++) {
        if (plane.exists(port) && (text == std::to_string(port) || text == port_name(port))) {
            return static_cast<int>(port);
        }
    }
    return -1;
}

bool parse_mode(const std::vector<std::string> &words, LinkMode &mode)
{
    mode = {1000, true};
    if (words.size() > 3) {
        if (words[3] != "10" && words[3] != "100" && words[3] != "1000") {
            return false;
        }
        mode.speed = words[3] == "10" ? 10 : words[3] == "100" ? 100 : 1000;
    }
    if (words.size() > 4) {
        if (words[4] != "half" && words[4] != "full") {
            return false;
        }
        mode.full_duplex = words[4] == "full";
    }
    return words.size() <= 5;
}

std::string set_link(VirtualSwitch &device, unsigned port, const std::vector<std::string> &words)
{
    const bool up = words.size() > 2 && words[2] == "up";
    LinkMode mode{};
    if (up ? !parse_mode(words, mode) : words.size() != 3 || words[2] != "down") {
        return error_json("usage: link PORT up|down [10|100|1000 [half|full]]");
    }
    if (words.size() > 3) {
        phy_set_partner(device.phy(port), mode);
    }
    phy_set_cable(device.phy(port), up);
    device.follow_links();
    return done;
}

std::string set_power(VirtualSwitch &device, unsigned port, const std::vector<std::string> &words)
{
    if (words.size() != 3 || (words[2] != "on" && words[2] != "off")) {
        return error_json("usage: power PORT on|off");
    }
    phy_set_power(device.phy(port), words[2] == "on");
    device.follow_links();
    return done;
}

} // namespace

ControlServer::~ControlServer()
{
    if (listener_) {
        unlink(path_.c_str());
    }
}

std::string ControlServer::listen(const std::string &socket_path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_path.size() >= sizeof address.sun_path) {
        return "control socket path is too long: " + socket_path;
    }
    memcpy(address.sun_path, socket_path.c_str(), socket_path.size() + 1);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    unlink(socket_path.c_str());
    if (!fd || bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) < 0 ||
        ::listen(fd.get(), 16) < 0 || !loop_.add(fd.get(), EPOLLIN, [this](uint32_t) { accept_all(); })) {
        return "cannot listen on " + socket_path + ": " + strerror(errno);
    }
    listener_ = std::move(fd);
    path_ = socket_path;
    return "";
}

void ControlServer::accept_all()
{
    for (;;) {
        UniqueFd accepted(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!accepted) {
            return;
        }
        const int fd = accepted.get();
        if (loop_.add(fd, EPOLLIN, [this, fd](uint32_t events) { serve(fd, events); })) {
            connections_[fd].fd = std::move(accepted);
        }
    }
}

void ControlServer::finish(int fd)
{
    device_.unwatch(fd);
    loop_.remove(fd);
    connections_.erase(fd);
}

void ControlServer::serve(int fd, uint32_t events)
{
    Connection &connection = connections_.at(fd);
    if (events & EPOLLOUT) {
        drain(connection);
    }
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) &&
        !take_input(connection, (events & (EPOLLHUP | EPOLLERR)) != 0)) {
        connection.dead = true;
    }
    run_lines(connection);
    if (connection.dead || (connection.ended && connection.output.empty())) {
        finish(fd);
    } else if (connection.ended) {
        loop_.change(fd, EPOLLOUT);
    }
}

// False when the peer is gone. One that has only ended its side still reads, but nobody captures for it.
bool ControlServer::take_input(Connection &connection, bool hung_up)
{
    char buffer[4096];
    const ssize_t length = recv(connection.fd.get(), buffer, sizeof buffer, 0);
    if (length < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (length == 0) {
        connection.ended = true;
        return !hung_up && !connection.capturing;
    }
    if (!connection.capturing) {
        connection.input.append(buffer, static_cast<size_t>(length));
    }
    return true;
}

void ControlServer::run_lines(Connection &connection)
{
    size_t end = 0;
    while (!connection.capturing && !connection.dead &&
           (end = connection.input.find('\n')) != std::string::npos) {
        const std::string line = connection.input.substr(0, end);
        connection.input.erase(0, end + 1);
        const std::string reply =
            line.size() > longest_line ? error_json("line too long") : execute(connection, line);
        send(connection, connection.capturing ? reply : reply + "\n");
        if (connection.output.size() > reply_backlog) {
            connection.dead = true;
        }
    }
    if (connection.input.size() > longest_line) {
        send(connection, error_json("line too long") + "\n");
        connection.dead = true;
    }
}

void ControlServer::send(Connection &connection, const std::string &text)
{
    const bool waiting = !connection.output.empty();
    connection.output += text;
    if (!waiting) {
        drain(connection);
    }
}

void ControlServer::drain(Connection &connection)
{
    while (!connection.output.empty()) {
        const ssize_t sent =
            ::send(connection.fd.get(), connection.output.data(), connection.output.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                connection.output.clear(); // the loop will report the hang-up and end the connection
            }
            break;
        }
        connection.output.erase(0, static_cast<size_t>(sent));
    }
    uint32_t interest = 0;
    interest |= connection.ended ? 0U : EPOLLIN;
    interest |= connection.output.empty() ? 0U : EPOLLOUT;
    loop_.change(connection.fd.get(), interest);
}

std::string ControlServer::start_capture(Connection &connection, unsigned port)
{
    connection.capturing = true;
    device_.watch(port, connection.fd.get(), [this, &connection](std::span<const uint8_t> frame) {
        if (connection.output.size() < capture_backlog) {
            send(connection, pcap_record(frame));
        }
    });
    return pcap_header();
}

std::string ControlServer::execute(Connection &connection, const std::string &line)
{
    const std::vector<std::string> words = words_of(line);
    const std::string command = words.empty() ? "" : words[0];
    if (command == "status" && words.size() == 1) {
        device_.follow_links();
        return status_json(device_);
    }
    if (command == "mac" && words.size() == 1) {
        return mac_json(device_);
    }
    if (command == "flush" && words.size() == 1) {
        device_.forwarder().mac_table().flush();
        return done;
    }
    if (command != "link" && command != "power" && command != "capture") {
        return error_json("unknown command; known: link, power, status, mac, flush, capture");
    }
    const int port = words.size() > 1 ? parse_port(device_.forwarder(), words[1]) : -1;
    if (port < 0) {
        return error_json("no such port");
    }
    if (command == "capture") {
        return words.size() == 2 ? start_capture(connection, static_cast<unsigned>(port))
                                 : error_json("usage: capture PORT");
    }
    if (port >= static_cast<int>(front_ports)) {
        return error_json("a CPU-side port has no cable and no PHY");
    }
    return command == "link" ? set_link(device_, static_cast<unsigned>(port), words)
                             : set_power(device_, static_cast<unsigned>(port), words);
}

} // namespace lab
