// The begin and the end of a recording: when this library is loaded in front of the daemon, and when the
// process ends in order.
//
//   IVARODE_RECORD          the file, instead of /tmp/ivarode.rec
//   IVARODE_RECORD_SIZE     its size in KiB, instead of 1024
//   IVARODE_RECORD_SECRETS  1: passwords as they are

#include "record/mask.h"
#include "record/real.h"
#include "record/writer.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace seam::record;
using namespace seam::format;

namespace {

constexpr const char *default_path = "/tmp/ivarode.rec";
constexpr size_t default_size = 1U << 20;
constexpr const char *kept_files[] = {"/etc/board.json", "/etc/config/lan_intf", "/etc/config/wan_intf",
                                      "/etc/config/route_config"};
constexpr const char *own_variables[] = {"IVARODE_RECORD", "IVARODE_RECORD_SIZE", "IVARODE_RECORD_SECRETS"};
constexpr const char *own_name = "libivarode-record.so";

bool is_set(const char *value)
{
    return value != nullptr && value[0] != '\0';
}

size_t wanted_size()
{
    const char *value = getenv("IVARODE_RECORD_SIZE");
    const size_t size = is_set(value) ? strtoul(value, nullptr, 10) * 1024 : 0;
    return size == 0 ? default_size : size;
}

// What the daemon starts is not recorded: this library leaves the list of those to be preloaded. The list is
// the process's own copy.
void leave_preload()
{
    char *list = getenv("LD_PRELOAD");
    char *at = list == nullptr ? nullptr : strstr(list, own_name);
    if (at == nullptr) {
        return;
    }
    char *rest = at + strlen(own_name);
    rest += *rest == ':' || *rest == ' ' ? 1 : 0;
    while (at > list && at[-1] != ':' && at[-1] != ' ') {
        --at;
    }
    memmove(at, rest, strlen(rest) + 1);
    if (*list == '\0') {
        unsetenv("LD_PRELOAD");
    }
}

void keep_file(const char *path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return;
    }
    Entry entry(Kind::file);
    entry.text(path);
    constexpr size_t room = longest_value / 2;
    if (char *content = entry.room(room)) {
        const ssize_t length = read(fd, content, room);
        const size_t used = length < 0 ? 0 : static_cast<size_t>(length);
        if (are_secrets_masked()) {
            mask_config(content, used);
        }
        entry.room_used(used);
    }
    close(fd);
}

// A program that has no platform library is on the way to the daemon, such as a jail: it hands the variables
// on.
__attribute__((constructor)) void loaded()
{
    if (find_symbol("ubuslib_invoke_init") == nullptr) {
        return;
    }
    note_program();
    leave_preload();
    const char *path = getenv("IVARODE_RECORD");
    const char *secrets = getenv("IVARODE_RECORD_SECRETS");
    begin(is_set(path) ? path : default_path, wanted_size(), is_set(secrets) && secrets[0] == '1');
    for (const char *name : own_variables) {
        unsetenv(name);
    }
    for (const char *kept : kept_files) {
        keep_file(kept);
    }
}

__attribute__((destructor)) void ended()
{
    const Entry over{Kind::over};
}

} // namespace
