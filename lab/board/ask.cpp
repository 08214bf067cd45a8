#include "ask.h"

#include "check.h"

#include <array>
#include <cstdio>
#include <sys/socket.h>
#include <sys/un.h>

namespace lab {
namespace {

bool write_all(int fd, const char *data, size_t size)
{
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n <= 0) {
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

} // namespace

int ask(const std::string &socket_path, const std::string &line, bool stream)
{
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    std::string text = line + "\n";
    if (!fd || connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) < 0 ||
        !write_all(fd.get(), text.data(), text.size())) {
        fprintf(stderr, "%s: %s\n", socket_path.c_str(), std::strerror(errno));
        return 1;
    }
    std::array<char, 16384> buffer{};
    for (ssize_t n = 0; (n = read(fd.get(), buffer.data(), buffer.size())) > 0;) {
        if (!write_all(1, buffer.data(), static_cast<size_t>(n))) {
            return 0; // the reader has seen enough
        }
        if (!stream && buffer[static_cast<size_t>(n) - 1] == '\n') {
            return 0;
        }
    }
    return stream ? 0 : 1;
}

} // namespace lab
