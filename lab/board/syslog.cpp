#include "syslog.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace lab {
namespace {

constexpr size_t lines_kept = 4096;
constexpr std::array<const char *, 8> level_names{"emerg",   "alert",  "crit", "err",
                                                  "warning", "notice", "info", "debug"};

std::string visible(std::string_view text)
{
    std::string out;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (byte < 0x20 || byte == 0x7f) {
            std::array<char, 8> hex{};
            snprintf(hex.data(), hex.size(), "\\x%02x", byte);
            out += hex.data();
        } else {
            out += c;
        }
    }
    return out;
}

// Cuts "<PRI>" and the C library's "Mmm dd hh:mm:ss " off; gives the level's name.
std::string split_message(std::string_view &message)
{
    unsigned priority = 6;
    size_t close_at = message.find('>');
    if (!message.empty() && message.front() == '<' && close_at != std::string_view::npos && close_at < 5) {
        priority = 0;
        for (char c : message.substr(1, close_at - 1)) {
            priority = priority * 10 + static_cast<unsigned>(c - '0') % 10;
        }
        message.remove_prefix(close_at + 1);
    }
    if (message.size() > 16 && message[3] == ' ' && message[6] == ' ' && message[9] == ':' &&
        message[15] == ' ') {
        message.remove_prefix(16);
    }
    return level_names[priority & 7];
}

} // namespace

Syslog::Syslog(Loop &loop, const std::string &socket_path, const std::string &file_path)
{
    socket_ = UniqueFd(check(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "system log"));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    unlink(socket_path.c_str());
    check(bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), socket_path);
    check(chmod(socket_path.c_str(), 0666), socket_path);
    int size = 1 << 20;
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    file_ =
        UniqueFd(check(open(file_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), file_path));
    loop.watch(socket_.get(), EPOLLIN, [this](uint32_t) { receive(); });
}

void Syslog::receive()
{
    std::array<char, 16384> buffer{};
    for (;;) {
        ssize_t n = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (n < 0) {
            return;
        }
        std::string_view message(buffer.data(), static_cast<size_t>(n));
        if (!message.empty() && message.back() == '\0') {
            message.remove_suffix(1);
        }
        std::string level = split_message(message);
        // The end of the line is the log's own business, as with every log daemon.
        while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) {
            message.remove_suffix(1);
        }
        take(level, visible(message));
    }
}

void Syslog::note(const std::string &text)
{
    take("info", "lab: " + visible(text));
}

void Syslog::take(const std::string &level, const std::string &text)
{
    Clock::time_point now = Clock::now();
    std::array<char, 40> stamp{};
    snprintf(stamp.data(), stamp.size(), "%9.3f ", std::chrono::duration<double>(now - began_).count());
    std::string line = stamp.data() + level + " " + text;
    std::string with_end = line + "\n";
    (void)!write(file_.get(), with_end.data(), with_end.size()); // a full disk must not end the board
    lines_.push_back({now, line});
    if (lines_.size() > lines_kept) {
        lines_.pop_front();
    }
    for (auto it = waiters_.begin(); it != waiters_.end();) {
        if (line.find(it->text) == std::string::npos) {
            ++it;
            continue;
        }
        auto found = std::move(it->found);
        it = waiters_.erase(it);
        found(line, now);
    }
}

void Syslog::when_said(const std::string &text,
                       std::function<void(const std::string &, Clock::time_point)> found)
{
    for (const Line &line : lines_) {
        if (line.text.find(text) != std::string::npos) {
            found(line.text, line.at);
            return;
        }
    }
    waiters_.push_back({text, std::move(found)});
}

} // namespace lab
