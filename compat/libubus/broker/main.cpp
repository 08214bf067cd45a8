// ubusd: the message broker of the bus, in the foreground.
#include "broker.h"
#include "server.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <getopt.h>
#include <syslog.h>
#include <unistd.h>

namespace {

const char *acl_dir = "/usr/share/acl.d";
int reload_write_fd = -1;
uloop_fd reload_request = {};

void usage(FILE *out)
{
    fprintf(out,
            "Usage: ubusd [-A <dir>] [-s <socket>]\n"
            "  -A <dir>     access files for users other than root (default: %s)\n"
            "  -s <socket>  socket to listen on (default: %s)\n"
            "  -h, --help   this text\n"
            "SIGHUP reads the access files again.\n",
            acl_dir, UBUS_UNIX_SOCKET);
}

void on_hangup(int)
{
    const int saved_errno = errno;
    [[maybe_unused]] const ssize_t written = write(reload_write_fd, "r", 1);
    errno = saved_errno;
}

void on_reload(uloop_fd *fd, unsigned int)
{
    char sink[16];
    while (read(fd->fd, sink, sizeof(sink)) > 0) {
    }
    broker::acl_reload(acl_dir);
}

void watch_hangup()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
        return;
    }
    reload_write_fd = ends[1];
    reload_request.fd = ends[0];
    reload_request.cb = on_reload;
    uloop_fd_add(&reload_request, ULOOP_READ);

    struct sigaction action = {};
    action.sa_handler = on_hangup;
    sigaction(SIGHUP, &action, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    static const option long_options[] = {{"help", no_argument, nullptr, 'h'}, {}};
    const char *socket_path = UBUS_UNIX_SOCKET;
    int letter;

    while ((letter = getopt_long(argc, argv, "A:s:h", long_options, nullptr)) != -1) {
        switch (letter) {
        case 'A':
            acl_dir = optarg;
            break;
        case 's':
            socket_path = optarg;
            break;
        case 'h':
            usage(stdout);
            return 0;
        default:
            usage(stderr);
            return 1;
        }
    }
    openlog("ubusd", LOG_PID, LOG_DAEMON);
    if (uloop_init() < 0) {
        perror("ubusd: event loop");
        return 1;
    }
    if (broker::server_open(socket_path) < 0) {
        uloop_done();
        return 1;
    }
    watch_hangup();
    broker::acl_load(acl_dir);
    uloop_run();
    broker::clients_free_all();
    broker::acl_free();
    broker::server_close();
    uloop_done();
    return 0;
}
