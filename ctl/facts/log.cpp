// The last words of the clients, out of the system log: by the daemon logread, or in a file.

#include "facts/router.h"
#include "libsys/command.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>

namespace ctl {

namespace {

constexpr const char *log_path = "/var/log/messages";
constexpr off_t part_read = 0x40000;

void read_log(libsys::text &into)
{
    libsys::argument_list command;
    int status = 0;
    command.add("logread");
    if (libsys::run(command, libsys::capture::everything, &into, &status) == 0 && status == 0) {
        return;
    }
    into.clear();
    const libsys::unique_fd fd(open(log_path, O_RDONLY | O_CLOEXEC));
    const off_t size = !fd ? 0 : lseek(fd.get(), 0, SEEK_END);
    const auto part = static_cast<size_t>(size < part_read ? size : part_read);
    char *room = into.reserve(part);
    if (room != nullptr && size > 0) {
        const ssize_t got = pread(fd.get(), room, part, size - static_cast<off_t>(part));
        into.grew(got > 0 ? static_cast<size_t>(got) : 0);
    }
}

// What a client is known by in the log: its process, or the name of its interface behind the scripts' own.
bool is_said_by(const char *line, json_object *client)
{
    char mark[64];
    if (get_text(client, "service") == "pppoe") {
        snprintf(mark, sizeof(mark), "pppd[%s]: ", shown(client, "pid"));
    } else {
        snprintf(mark, sizeof(mark), "ivarode-wan: %.32s ", shown(client, "name"));
    }
    return strstr(line, mark) != nullptr;
}

} // namespace

void add_last_words(json_object *facts)
{
    json_object *clients = get(facts, "clients");
    if (clients == nullptr || json_object_array_length(clients) == 0) {
        return;
    }
    libsys::text log;
    read_log(log);
    char *rest = nullptr;
    for (char *line = strtok_r(log.get(), "\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\n", &rest)) {
        each(clients, [&](json_object *client) {
            if (is_said_by(line, client)) {
                put(client, "last_words", strstr(line, ": ") + strlen(": "));
                put(client, "last_line", line);
            }
        });
    }
}

} // namespace ctl
