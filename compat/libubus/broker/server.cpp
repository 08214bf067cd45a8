// The listening socket: its path, and the admission of clients.
#include "server.h"

#include "broker.h"
#include "path_lock.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr int backlog = 128;
constexpr int accepts_per_turn = 16;
constexpr int answer_ms = 1000;

uloop_fd listener = {};
sockaddr_un address = {};
struct stat own_file = {}; // the socket as it was made
// Given up for a moment when no descriptor is left, so that the waiting client can be turned away.
int reserve_fd = -1;

bool identify(int fd, const ucred &credentials, peer_identity *identity)
{
    identity->uid = credentials.uid;
    identity->gid = credentials.gid;
    socklen_t len = sizeof(identity->groups);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, identity->groups, &len) == 0) {
        identity->group_count = len / sizeof(gid_t);
    }
    const passwd *user = getpwuid(credentials.uid);
    identity->user = copy_text(user != nullptr ? user->pw_name : nullptr);
    const struct group *group = getgrgid(credentials.gid);
    identity->group = copy_text(group != nullptr ? group->gr_name : nullptr);
    return identity->user != nullptr && identity->group != nullptr;
}

void let_in(int fd)
{
    ucred credentials = {};
    socklen_t len = sizeof(credentials);
    user_account *account;
    // Before the names are looked up, which costs more than all else here.
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &len) < 0 ||
        !account_join(credentials.uid, &account)) {
        close(fd);
        return;
    }
    peer_identity identity = {};
    if (!identify(fd, credentials, &identity)) {
        free(identity.user);
        free(identity.group);
        discharge(account, {.connections = 1});
        close(fd);
        return;
    }
    client_new(fd, identity, account);
}

void turn_one_away()
{
    if (reserve_fd < 0) {
        return;
    }
    close(reserve_fd);
    const int fd = accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        close(fd);
    }
    reserve_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void on_connection(uloop_fd *, unsigned int)
{
    for (int count = 0; count < accepts_per_turn; count++) {
        const int fd = accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0) {
            let_in(fd);
            continue;
        }
        if (errno == EMFILE || errno == ENFILE) {
            turn_one_away();
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

// Whether a broker serves the address: 0 if not, EADDRINUSE if one greets, ECONNRESET if one hangs up, or
// what has failed.
int probe(int fd)
{
    const timeval patience = {answer_ms / 1000, 0};
    // Connecting waits, too, where a broker that stands still has not accepted those before.
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    int result;
    do {
        result = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        return errno == ECONNREFUSED || errno == EAGAIN || errno == ENOENT ? 0 : errno;
    }
    pollfd greeting = {fd, POLLIN, 0};
    do {
        result = poll(&greeting, 1, answer_ms);
    } while (result < 0 && errno == EINTR);
    if (result <= 0) {
        return result < 0 ? errno : 0;
    }
    char first;
    return recv(fd, &first, sizeof(first), MSG_DONTWAIT) > 0 ? EADDRINUSE : ECONNRESET;
}

// Removes the socket of a broker that is gone or does not answer; 0 or an errno value.
int clear_path()
{
    struct stat info = {};
    if (lstat(address.sun_path, &info) < 0) {
        return errno == ENOENT ? 0 : errno;
    }
    if (!S_ISSOCK(info.st_mode)) {
        return ENOTSOCK;
    }
    // One that ends just now hangs up once; one without descriptors does so each time.
    int error = ECONNRESET;
    for (int tries = 0; tries < 3 && error == ECONNRESET; tries++) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        error = fd < 0 ? errno : probe(fd);
        if (fd >= 0) {
            close(fd);
        }
    }
    if (error) {
        return error == ECONNRESET ? EADDRINUSE : error;
    }
    return unlink(address.sun_path) < 0 && errno != ENOENT ? errno : 0;
}

void remove_own_file()
{
    struct stat info = {};
    if (lstat(address.sun_path, &info) == 0 && info.st_dev == own_file.st_dev &&
        info.st_ino == own_file.st_ino) {
        unlink(address.sun_path);
    }
}

// 0 or an errno value.
int listen_at_address()
{
    // Another one that starts would take a socket that is bound and not yet listened on for a dead one's.
    const path_lock lock(address.sun_path);
    if (const int error = lock.error() != 0 ? lock.error() : clear_path()) {
        return error;
    }
    const mode_t old_mask = umask(0111);
    const int bound = bind(listener.fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    umask(old_mask);
    if (bound < 0) {
        return errno;
    }
    if (lstat(address.sun_path, &own_file) < 0 || listen(listener.fd, backlog) < 0 ||
        uloop_fd_add(&listener, ULOOP_READ) < 0) {
        const int error = errno;
        remove_own_file();
        return error;
    }
    return 0;
}

} // namespace

int server_open(const char *path)
{
    if (strlen(path) >= sizeof(address.sun_path)) {
        fprintf(stderr, "ubusd: socket path too long: %s\n", path);
        return -1;
    }
    if (strcmp(path, UBUS_UNIX_SOCKET) == 0) {
        mkdir("/var/run/ubus", 0755);
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, strlen(path) + 1);
    listener.cb = on_connection;
    listener.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);

    own_file = {};
    const int error = listener.fd < 0 ? errno : listen_at_address();
    if (error) {
        fprintf(stderr, "ubusd: cannot listen on %s: %s\n", path, strerror(error));
        if (listener.fd >= 0) {
            close(listener.fd);
        }
        return -1;
    }
    reserve_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    accounts_open();
    return 0;
}

void server_close()
{
    uloop_fd_delete(&listener);
    {
        // Without the lock, too: another broker may start at this very moment, but hardly does.
        const path_lock lock(address.sun_path);
        // As long as the descriptor is open, no other file can have the number of ours.
        remove_own_file();
    }
    close(listener.fd);
    if (reserve_fd >= 0) {
        close(reserve_fd);
    }
}

} // namespace broker
