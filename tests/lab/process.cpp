#include "process.h"

#include "../argv.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lab_test {

namespace {

// Appends what can be read within the time; false at the end of input or past the deadline.
bool append_from(int fd, std::string &text, int64_t end)
{
    pollfd waiting{fd, POLLIN, 0};
    const int64_t left = end - clock_ms();
    if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) <= 0) {
        return false;
    }
    char buffer[4096];
    const ssize_t length = read(fd, buffer, sizeof buffer);
    if (length <= 0) {
        return false;
    }
    text.append(buffer, static_cast<size_t>(length));
    return true;
}

} // namespace

int64_t clock_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void pause_ms(int milliseconds)
{
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    nanosleep(&time, nullptr);
}

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "lab-test-XXXXXX").string();
    path = mkdtemp(pattern.data()) ? pattern : "/nonexistent";
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Process::Process(const std::vector<std::string> &command, const std::vector<std::string> &variables)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) {
        return;
    }
    output = lab::UniqueFd(ends[0]);
    const lab::UniqueFd writer(ends[1]);
    pid = fork();
    if (pid != 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(writer.get(), STDOUT_FILENO);
    for (const std::string &variable : variables) {
        putenv(const_cast<char *>(variable.c_str()));
    }
    const std::vector<char *> arguments = argv_of(command);
    execv(arguments[0], arguments.data());
    _exit(127);
}

Process::~Process()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

void Process::send_signal(int number) const
{
    if (pid > 0) {
        kill(pid, number);
    }
}

bool Process::wait_line(const std::string &line)
{
    const int64_t end = clock_ms() + deadline_ms;
    while (("\n" + text).find("\n" + line + "\n") == std::string::npos) {
        if (!append_from(output.get(), text, end)) {
            return false;
        }
    }
    return true;
}

int Process::wait()
{
    int status = 0;
    const bool ended = pid > 0 && eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; });
    if (!ended) {
        return -1;
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Process::finish(int &status)
{
    const int64_t end = clock_ms() + deadline_ms;
    while (append_from(output.get(), text, end)) {
    }
    status = wait();
    return text;
}

Connection::Connection(const std::string &path) : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    connected = connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
}

void Connection::write(const std::string &data)
{
    for (size_t done = 0; done < data.size();) {
        const ssize_t sent = send(fd.get(), data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return;
        }
        done += static_cast<size_t>(sent);
    }
}

void Connection::end_writing()
{
    shutdown(fd.get(), SHUT_WR);
}

std::string Connection::line()
{
    const int64_t end = clock_ms() + deadline_ms;
    while (text.find('\n') == std::string::npos && append_from(fd.get(), text, end)) {
    }
    const size_t found = text.find('\n');
    std::string result = text.substr(0, found);
    text.erase(0, found == std::string::npos ? found : found + 1);
    return result;
}

std::string Connection::bytes(size_t count)
{
    const int64_t end = clock_ms() + deadline_ms;
    while (text.size() < count && append_from(fd.get(), text, end)) {
    }
    std::string result = text.substr(0, count);
    text.erase(0, result.size());
    return result;
}

bool Connection::ended()
{
    char byte = 0;
    pollfd waiting{fd.get(), POLLIN, 0};
    return text.empty() && poll(&waiting, 1, deadline_ms) > 0 && recv(fd.get(), &byte, 1, MSG_PEEK) <= 0;
}

} // namespace lab_test
