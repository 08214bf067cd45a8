// The listening socket: where it lies, and who is let in.
#include "server.h"

#include "broker.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr int backlog = 128;
constexpr int accepts_per_turn = 16;

uloop_fd listener = {};
sockaddr_un address = {};
// Given up for a moment when no descriptor is left, so that the waiting client can be turned away.
int reserve_fd = -1;

bool identify(int fd, const ucred &credentials, Identity *identity)
{
    identity->uid = credentials.uid;
    identity->gid = credentials.gid;
    socklen_t len = sizeof(identity->groups);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, identity->groups, &len) == 0) {
        identity->group_count = len / sizeof(gid_t);
    }
    const passwd *user = getpwuid(credentials.uid);
    identity->user = copy_text(user ? user->pw_name : nullptr);
    const struct group *group = getgrgid(credentials.gid);
    identity->group = copy_text(group ? group->gr_name : nullptr);
    return identity->user && identity->group;
}

void let_in(int fd)
{
    ucred credentials = {};
    socklen_t len = sizeof(credentials);
    Account *account;
    // Before the names are looked up, which costs more than all else here.
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &len) < 0 ||
        !account_join(credentials.uid, &account)) {
        close(fd);
        return;
    }
    Identity identity = {};
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

    unlink(path);
    const mode_t old_mask = umask(0111);
    const bool open_for_business =
        listener.fd >= 0 && bind(listener.fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0 &&
        listen(listener.fd, backlog) == 0 && uloop_fd_add(&listener, ULOOP_READ) == 0;
    umask(old_mask);
    if (!open_for_business) {
        fprintf(stderr, "ubusd: cannot listen on %s: %s\n", path, strerror(errno));
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
    close(listener.fd);
    if (reserve_fd >= 0) {
        close(reserve_fd);
    }
    unlink(address.sun_path);
}

} // namespace broker
