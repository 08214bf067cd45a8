// Versions and builds: of this tool, of the daemon that runs or is installed, of the libraries that both
// load.

#include "facts/build_id.h"
#include "gather.h"
#include "processes.h"
#include "report.h"

#include <climits>
#include <cstring>
#include <link.h>
#include <sys/stat.h>

namespace ctl {

namespace {

constexpr const char *libraries[] = {"libsys.", "libubus.", "libubox.", "libblobmsg_json."};
constexpr const char *installed_daemon = "/usr/sbin/ivarode";
constexpr const char *removed = " (deleted)";

json_object *append_part(json_object *parts, const char *name, const char *path, const char *readable)
{
    json_object *made = append_table(parts);
    put(made, "name", name);
    put(made, "path", path);
    struct stat info;
    if (stat(readable, &info) == 0) {
        put_number(made, "bytes", info.st_size);
    }
    char id[65];
    read_build_id(readable, id, sizeof(id));
    if (*id != '\0') {
        put(made, "build_id", id);
    }
    return made;
}

int add_library(dl_phdr_info *loaded, size_t /*size*/, void *to)
{
    const char *slash = strrchr(loaded->dlpi_name, '/');
    for (const char *library : libraries) {
        if (slash != nullptr && strncmp(slash + 1, library, strlen(library)) == 0) {
            append_part(static_cast<json_object *>(to), slash + 1, loaded->dlpi_name, loaded->dlpi_name);
        }
    }
    return 0;
}

// The file that a process runs; true when another has taken its place since.
bool path_of_process(const char *link, char (&path)[PATH_MAX])
{
    const ssize_t length = readlink(link, path, sizeof(path) - 1);
    path[length > 0 ? length : 0] = '\0';
    char *mark = strstr(path, removed);
    if (mark != nullptr) {
        *mark = '\0';
    }
    return mark != nullptr;
}

void append_own_part(json_object *parts)
{
    char path[PATH_MAX];
    path_of_process("/proc/self/exe", path);
    append_part(parts, "ivarodectl", path, "/proc/self/exe");
}

void append_daemon_part(json_object *parts)
{
    process runs;
    if (!find_process("ivarode", &runs)) {
        put_flag(append_part(parts, "ivarode", installed_daemon, installed_daemon), "running", false);
        return;
    }
    char link[64];
    char path[PATH_MAX];
    snprintf(link, sizeof(link), "/proc/%d/exe", runs.pid);
    const bool replaced = path_of_process(link, path);
    json_object *made = append_part(parts, "ivarode", *path != '\0' ? path : installed_daemon, link);
    put_flag(made, "running", true);
    put_number(made, "pid", runs.pid);
    put_number(made, "uptime_s", runs.age_s);
    put_flag(made, "replaced", replaced);
}

} // namespace

int gather_version(const words & /*given*/, json_object *facts)
{
    put(facts, "ivarodectl", IVARODE_VERSION);
    put(facts, "build", IVARODE_BUILD);
    json_object *parts = put_list(facts, "parts");
    append_own_part(parts);
    append_daemon_part(parts);
    dl_iterate_phdr(add_library, parts);
    return done;
}

} // namespace ctl
