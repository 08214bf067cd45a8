#include "support.h"

#include "../../argv.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

int wait_readable(int fd, std::chrono::milliseconds time)
{
    pollfd waiting = {fd, POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(time.count()));
}

int connect_to(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

std::string read_all(int fd)
{
    std::string text;
    char part[4096];
    ssize_t got;
    while ((got = read(fd, part, sizeof(part))) > 0) {
        text.append(part, static_cast<size_t>(got));
    }
    return text;
}

} // namespace

Bytes from_hex(const std::string &text)
{
    Bytes bytes;
    std::string digits;
    for (char c : text) {
        if (isxdigit(static_cast<unsigned char>(c))) {
            digits += c;
        }
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string to_hex(const Bytes &bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i++) {
        if (i && i % 4 == 0) {
            text += ' ';
        }
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

void append_u32(Bytes &bytes, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

uint32_t u32_at(const Bytes &bytes, size_t offset)
{
    return static_cast<uint32_t>(bytes.at(offset)) << 24 | static_cast<uint32_t>(bytes.at(offset + 1)) << 16 |
           static_cast<uint32_t>(bytes.at(offset + 2)) << 8 | bytes.at(offset + 3);
}

Bytes operator+(Bytes left, const Bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes message(int type, uint16_t seq, uint32_t peer, const Bytes &content)
{
    Bytes bytes = {0, static_cast<uint8_t>(type), static_cast<uint8_t>(seq >> 8), static_cast<uint8_t>(seq)};
    append_u32(bytes, peer);
    append_u32(bytes, static_cast<uint32_t>(content.size()) + 4);
    return bytes + content;
}

Bytes attr_bytes(int id, const Bytes &payload)
{
    Bytes bytes;
    append_u32(bytes, static_cast<uint32_t>(id) << 24 | static_cast<uint32_t>(payload.size() + 4));
    bytes = bytes + payload;
    bytes.resize((bytes.size() + 3) & ~size_t{3});
    return bytes;
}

Bytes attr_u32(int id, uint32_t value)
{
    Bytes payload;
    append_u32(payload, value);
    return attr_bytes(id, payload);
}

Bytes attr_string(int id, const std::string &text)
{
    Bytes payload(text.begin(), text.end());
    payload.push_back(0);
    return attr_bytes(id, payload);
}

std::map<int, Bytes> attributes(const Bytes &message)
{
    std::map<int, Bytes> found;
    size_t at = 12;
    while (at + 4 <= message.size()) {
        const uint32_t word = u32_at(message, at);
        const size_t len = word & 0xffffff;
        if (len < 4 || at + len > message.size()) {
            throw std::runtime_error("broken attribute in " + to_hex(message));
        }
        const auto start = message.begin() + static_cast<ptrdiff_t>(at);
        found[static_cast<int>(word >> 24 & 0x7f)] = Bytes(start + 4, start + static_cast<ptrdiff_t>(len));
        at += (len + 3) & ~size_t{3};
    }
    return found;
}

int status_of(const Bytes &message)
{
    auto found = attributes(message);
    return message.at(1) == UBUS_MSG_STATUS && found.contains(UBUS_ATTR_STATUS)
               ? static_cast<int>(u32_at(found[UBUS_ATTR_STATUS], 0))
               : -1;
}

uint32_t id_in(const Bytes &message, int attribute)
{
    return u32_at(attributes(message).at(attribute), 0);
}

TempDir::TempDir()
{
    char name[] = "/tmp/compat-bus-XXXXXX";
    if (!mkdtemp(name)) {
        throw std::runtime_error("mkdtemp");
    }
    dir_ = name;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

std::string TempDir::path(const std::string &name) const
{
    return name.empty() ? dir_ : dir_ + "/" + name;
}

Child::Child(const std::function<int()> &body)
{
    pid_ = fork();
    if (pid_ == 0) {
        _exit(body());
    }
}

Child::Child(const std::vector<std::string> &command, int stdout_fd, int stderr_fd)
{
    const std::vector<char *> argv = argv_of(command);
    pid_ = fork();
    if (pid_ == 0) {
        if (stdout_fd >= 0) {
            dup2(stdout_fd, STDOUT_FILENO);
        }
        if (stderr_fd >= 0) {
            dup2(stderr_fd, STDERR_FILENO);
        }
        // An ignored SIGPIPE and a blocked signal would be inherited.
        signal(SIGPIPE, SIG_DFL);
        execv(argv[0], argv.data());
        _exit(127);
    }
}

Child::~Child()
{
    if (pid_ > 0 && !status_) {
        ::kill(pid_, SIGKILL);
        status();
    }
}

int Child::status()
{
    if (!status_) {
        int raw = 0;
        while (waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
        }
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 1000 + WTERMSIG(raw);
    }
    return *status_;
}

void Child::kill(int signal) const
{
    ::kill(pid_, signal);
}

bool Child::running()
{
    int raw = 0;
    if (status_) {
        return false;
    }
    if (waitpid(pid_, &raw, WNOHANG) == pid_) {
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 1000 + WTERMSIG(raw);
        return false;
    }
    return true;
}

std::string tool(const std::string &name)
{
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

bool wait_until(const std::function<bool()> &condition)
{
    const auto deadline = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

Broker::Broker(std::vector<std::string> options, std::vector<std::string> launcher)
    : socket_(dir_.path("bus")), options_(std::move(options)), launcher_(std::move(launcher))
{
    start();
}

void Broker::start()
{
    std::vector<std::string> command = launcher_;
    command.insert(command.end(), {tool("ubusd"), "-s", socket_});
    if (options_.empty()) {
        options_ = {"-A", dir_.path("no-access-files")};
    }
    command.insert(command.end(), options_.begin(), options_.end());
    child_.reset();
    child_.emplace(command, -1, -1);
    const bool up = wait_until([this] {
        const int fd = connect_to(socket_);
        close(fd);
        return fd >= 0;
    });
    if (!up) {
        throw std::runtime_error("the broker does not start");
    }
}

void Broker::stop()
{
    child_->kill(SIGKILL);
    child_->status();
}

int Broker::end()
{
    child_->kill(SIGTERM);
    return child_->status();
}

void Broker::open_to_all()
{
    std::filesystem::permissions(dir_.path(), std::filesystem::perms(0755));
}

size_t Broker::resident_kib() const
{
    std::ifstream file("/proc/" + std::to_string(pid()) + "/statm");
    size_t total = 0;
    size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

size_t Broker::open_descriptors() const
{
    const std::filesystem::directory_iterator files("/proc/" + std::to_string(pid()) + "/fd");
    return static_cast<size_t>(std::distance(std::filesystem::begin(files), std::filesystem::end(files)));
}

RawClient::RawClient(const std::string &socket, bool read_hello) : fd_(connect_to(socket))
{
    if (fd_ < 0) {
        throw std::runtime_error("cannot connect to " + socket);
    }
    if (read_hello) {
        const Bytes hello = receive();
        id_ = u32_at(hello, 4);
    }
}

RawClient::RawClient(const std::string &socket, uid_t user)
{
    // The broker sees the effective user of the moment.
    if (setegid(user) != 0 || seteuid(user) != 0) {
        throw std::runtime_error("cannot become another user");
    }
    fd_ = connect_to(socket);
    if (seteuid(0) != 0 || setegid(0) != 0 || fd_ < 0) {
        throw std::runtime_error("cannot connect as another user");
    }
    id_ = u32_at(receive(), 4);
}

RawClient::RawClient(int connected_fd) : fd_(connected_fd) {}

RawClient::~RawClient()
{
    close(fd_);
}

bool RawClient::try_send(const Bytes &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        sent += static_cast<size_t>(count);
    }
    return true;
}

void RawClient::send(const Bytes &bytes)
{
    if (!try_send(bytes)) {
        throw std::runtime_error("connection closed while sending");
    }
}

void RawClient::send_with_descriptors(const Bytes &bytes, const std::vector<int> &descriptors)
{
    Bytes copy = bytes;
    iovec part = {copy.data(), copy.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))] = {};
    const size_t size = descriptors.size() * sizeof(int);
    msghdr msg = {};
    msg.msg_iov = &part;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = CMSG_SPACE(size);
    cmsghdr *cmsg = CMSG_FIRSTHDR(&msg);
    cmsg->cmsg_level = SOL_SOCKET;
    cmsg->cmsg_type = SCM_RIGHTS;
    cmsg->cmsg_len = CMSG_LEN(size);
    memcpy(CMSG_DATA(cmsg), descriptors.data(), size);
    if (sendmsg(fd_, &msg, MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("message with descriptors is not taken whole");
    }
}

Bytes RawClient::read_exactly(size_t count)
{
    Bytes bytes(count);
    size_t have = 0;
    while (have < count) {
        if (wait_readable(fd_, patience) <= 0) {
            throw std::runtime_error("nothing received, " + std::to_string(have) + " bytes so far");
        }
        const ssize_t got = recv(fd_, bytes.data() + have, count - have, 0);
        if (got <= 0) {
            throw std::runtime_error("connection closed while receiving");
        }
        have += static_cast<size_t>(got);
    }
    return bytes;
}

Bytes RawClient::receive()
{
    const Bytes head = read_exactly(12);
    const size_t len = u32_at(head, 8) & 0xffffff;
    return head + read_exactly(len - 4);
}

bool RawClient::silent(std::chrono::milliseconds time)
{
    return wait_readable(fd_, time) == 0;
}

bool RawClient::closed_by_peer()
{
    char sink[65536];
    for (;;) {
        if (wait_readable(fd_, patience) <= 0) {
            return false;
        }
        const ssize_t got = recv(fd_, sink, sizeof(sink), 0);
        if (got <= 0) {
            return got == 0 || errno == ECONNRESET;
        }
    }
}

std::vector<Bytes> RawClient::ask(const Bytes &request)
{
    std::vector<Bytes> answers;
    send(request);
    for (;;) {
        answers.push_back(receive());
        const Bytes &last = answers.back();
        if (last.at(1) == UBUS_MSG_STATUS && last[2] == request[2] && last[3] == request[3]) {
            return answers;
        }
    }
}

int RawClient::ask_status(const Bytes &request)
{
    return status_of(ask(request).back());
}

Output run(const std::vector<std::string> &command, bool terminal_stderr)
{
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) < 0 || (terminal_stderr ? openpty(&err[0], &err[1], nullptr, nullptr, nullptr)
                                                      : pipe2(err, O_CLOEXEC)) < 0) {
        throw std::runtime_error("pipe");
    }
    Child child(command, out[1], err[1]);
    close(out[1]);
    close(err[1]);
    Output result;
    std::thread errors([&] { result.err = read_all(err[0]); });
    result.out = read_all(out[0]);
    errors.join();
    result.code = child.status();
    close(out[0]);
    close(err[0]);
    return result;
}

} // namespace support
