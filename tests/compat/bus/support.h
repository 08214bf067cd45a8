// What the tests of the bus share: a broker process, a client that speaks in raw bytes, child processes, and
// waiting with a deadline. Failures throw, so that a test ends where it goes wrong.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <libubus.h>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// The attribute [[fallthrough]] of the standard headers must not become libubox's macro.
#undef fallthrough

namespace support {

using Bytes = std::vector<uint8_t>;

constexpr std::chrono::milliseconds patience{10000};

Bytes from_hex(const std::string &text); // blanks are ignored
std::string to_hex(const Bytes &bytes);  // words of four bytes
void append_u32(Bytes &bytes, uint32_t value);
uint32_t u32_at(const Bytes &bytes, size_t offset);

// A whole message: header, root, and the given bytes as the root's content.
Bytes message(int type, uint16_t seq, uint32_t peer, const Bytes &content = {});
Bytes attr_u32(int id, uint32_t value);
Bytes attr_bytes(int id, const Bytes &payload);
Bytes attr_string(int id, const std::string &text);
Bytes operator+(Bytes left, const Bytes &right);
// The plain attributes of a message by id.
std::map<int, Bytes> attributes(const Bytes &message);

// A folder of its own, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    std::string path(const std::string &name = "") const;

private:
    std::string dir_;
};

// A process of ours; killed with the object. status() waits for its end.
class Child {
public:
    explicit Child(const std::function<int()> &body);
    Child(const std::vector<std::string> &command, int stdout_fd, int stderr_fd);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    pid_t pid() const { return pid_; }
    int status(); // exit code, or 1000 plus the number of the signal
    void kill(int signal) const;
    bool running();

private:
    pid_t pid_ = -1;
    std::optional<int> status_;
};

std::string tool(const std::string &name); // beside the test program

class Broker {
public:
    // The launcher is the beginning of the command line.
    explicit Broker(std::vector<std::string> options = {}, std::vector<std::string> launcher = {});
    const std::string &socket() const { return socket_; }
    void open_to_all(); // who may reach the socket
    pid_t pid() const { return child_->pid(); }
    bool running() { return child_->running(); }
    void stop(); // at once, as a crash would
    int end();   // by SIGTERM; its exit code
    void start();
    size_t resident_kib() const;
    size_t open_descriptors() const;

private:
    TempDir dir_;
    std::string socket_;
    std::vector<std::string> options_;
    std::vector<std::string> launcher_;
    std::optional<Child> child_;
};

// A connection that sends and receives bytes.
class RawClient {
public:
    explicit RawClient(const std::string &socket, bool read_hello = true);
    RawClient(const std::string &socket, uid_t user); // connects as this user
    explicit RawClient(int connected_fd);
    ~RawClient();
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    void send(const Bytes &bytes);
    bool try_send(const Bytes &bytes); // false when the other side is gone or takes no more
    void send_with_descriptors(const Bytes &bytes, const std::vector<int> &descriptors);
    Bytes receive(); // the next whole message
    Bytes read_exactly(size_t count);
    bool silent(std::chrono::milliseconds time = std::chrono::milliseconds{100});
    bool closed_by_peer(); // within the patience; unread data is skipped
    // Sends a request and collects everything up to its STATUS.
    std::vector<Bytes> ask(const Bytes &request);
    int ask_status(const Bytes &request);
    uint32_t id() const { return id_; }
    int fd() const { return fd_; }

private:
    int fd_;
    uint32_t id_ = 0;
};

int status_of(const Bytes &message);
// The word that an attribute of a message holds.
uint32_t id_in(const Bytes &message, int attribute = UBUS_ATTR_OBJID);

// True as soon as the condition holds, false when the patience is over.
bool wait_until(const std::function<bool()> &condition);

struct Output {
    int code;
    std::string out;
    std::string err;
};
Output run(const std::vector<std::string> &command, bool terminal_stderr = false);

} // namespace support
