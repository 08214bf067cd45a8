// Lines to the switch's control socket: every line gets one line of JSON, until a connection begins a capture
// or goes too far, and the connection's end leaves nothing behind.
//
// An input is what one connection sends.
#include "control_server.h"
#include "input.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <json-c/json.h>
#include <memory>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using fuzz::promise;

class Socket {
public:
    Socket()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "fuzz-control-XXXXXX").string();
        promise(mkdtemp(pattern.data()) != nullptr, "there is a temporary folder");
        folder_ = pattern;
    }
    ~Socket() { std::filesystem::remove_all(folder_); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    std::string path() const { return folder_ / "control"; }

private:
    std::filesystem::path folder_;
};

lab::UniqueFd connect_to(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    lab::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    promise(fd && connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0,
            "the control socket can be reached");
    fcntl(fd.get(), F_SETFL, O_NONBLOCK);
    return fd;
}

// Sends as the other side takes it, and reads until the other side ends.
class Talk {
public:
    Talk(lab::EventLoop &loop, int fd, std::string_view words) : loop_(loop), fd_(fd), words_(words)
    {
        loop_.add(fd, EPOLLIN | EPOLLOUT, [this](uint32_t) { go_on(); });
    }
    ~Talk() { loop_.remove(fd_); }
    Talk(const Talk &) = delete;
    Talk &operator=(const Talk &) = delete;
    const std::string &answer() const { return answer_; }

private:
    void go_on()
    {
        char buffer[4096];
        ssize_t got = 0;
        while ((got = recv(fd_, buffer, sizeof buffer, 0)) > 0) {
            answer_.append(buffer, static_cast<size_t>(got));
        }
        if (got == 0 || errno != EAGAIN) {
            loop_.stop();
            return;
        }
        const ssize_t sent = send(fd_, words_.data(), words_.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            words_.remove_prefix(static_cast<size_t>(sent));
        }
        if (words_.empty()) {
            shutdown(fd_, SHUT_WR);
            loop_.change(fd_, EPOLLIN);
        }
    }

    lab::EventLoop &loop_;
    int fd_;
    std::string_view words_;
    std::string answer_;
};

// The beginning of a pcap file ends the lines.
void check(const std::string &answer, size_t lines_sent)
{
    const std::string pcap = "\xd4\xc3\xb2\xa1";
    const size_t capture = answer.find(pcap);
    fuzz::Input lines(std::string_view{answer}.substr(0, capture));
    size_t count = 0;
    while (!lines.empty()) {
        const std::string line{lines.until('\n')};
        json_object *object = json_tokener_parse(line.c_str());
        promise(json_object_is_type(object, json_type_object), "each line is answered by an object");
        json_object_put(object);
        count++;
    }
    promise(count <= lines_sent + 1, "no more answers than lines, but for one about the end");
    if (capture == answer.npos && answer.find("line too long") == answer.npos) {
        promise(count == lines_sent, "each line is answered");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Socket place;
    const std::string_view words{reinterpret_cast<const char *>(data), size};
    const auto registers = std::make_unique<uint32_t[]>(lab::switch_block_size / 4);
    const auto phys = std::make_unique<lab::PhyFile>();
    for (lab::Phy &phy : phys->phy) {
        lab::phy_power_on(phy, true);
    }
    lab::EventLoop loop;
    lab::VirtualSwitch device(lab::SwitchRegs(registers.get()), *phys, 2);
    lab::ControlServer server(loop, device);
    promise(server.listen(place.path()).empty(), "the control socket opens");
    const lab::UniqueFd fd = connect_to(place.path());
    const Talk talk(loop, fd.get(), words);
    promise(loop.run(), "the loop runs to its end");
    check(talk.answer(), static_cast<size_t>(std::count(words.begin(), words.end(), '\n')));
    return 0;
}
