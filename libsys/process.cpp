// Child processes as instances of the supervisor, which owns the bus object "service".

#include "bus_call.h"
#include "command.h"
#include "exports.h"
#include "internal.h"

#include <cstring>
#include <fcntl.h>
#include <iterator>

namespace libsys {

namespace {

constexpr char supervisor[] = "service";
// Started again 5 s after its end, without ever giving up; an hour of life forgives earlier ends. Strings, as
// the supervisor reads nothing else here.
constexpr const char *respawn[] = {"3600", "5", "0"};

// The instances that this process has started, service and instance one after the other.
argument_list started;

bool is_name(const char *text)
{
    return text != nullptr && text[0] != '\0';
}

size_t find_started(const char *service, const char *instance)
{
    size_t at = 0;
    while (at < started.count() &&
           (strcmp(started[at], service) != 0 || strcmp(started[at + 1], instance) != 0)) {
        at += 2;
    }
    return at;
}

int remember(const char *service, const char *instance)
{
    if (find_started(service, instance) < started.count()) {
        return 0;
    }
    int error = started.add(service);
    if (!error) {
        error = started.add(instance);
        if (error) {
            started.remove(started.count() - 1);
        }
    }
    return error;
}

void forget(const char *service, const char *instance)
{
    size_t at = find_started(service, instance);
    if (at < started.count()) {
        started.remove(at + 1);
        started.remove(at);
    }
}

// Each part gives false when memory is short: what is left of a message then would ask for something else.
bool put_words(blob_buf *into, const char *name, const char *const *words, size_t count)
{
    void *list = blobmsg_open_array(into, name);
    bool good = list != nullptr;
    for (size_t i = 0; good && i < count; ++i) {
        good = blobmsg_add_string(into, nullptr, words[i]) == 0;
    }
    if (list != nullptr) {
        blobmsg_close_array(into, list);
    }
    return good;
}

bool put_start(blob_buf *into, const char *service, const char *instance, const argument_list &command)
{
    if (blobmsg_add_string(into, "name", service) != 0) {
        return false;
    }
    void *instances = blobmsg_open_table(into, "instances");
    void *one = instances != nullptr ? blobmsg_open_table(into, instance) : nullptr;
    if (one == nullptr || !put_words(into, "command", command.argv(), command.count()) ||
        !put_words(into, "respawn", respawn, std::size(respawn))) {
        return false;
    }
    blobmsg_close_table(into, one);
    blobmsg_close_table(into, instances);
    return true;
}

// An instance that the supervisor does not know is stopped already.
int stop(const char *service, const char *instance)
{
    message request;
    if (blobmsg_add_string(request.get(), "name", service) != 0 ||
        blobmsg_add_string(request.get(), "instance", instance) != 0) {
        return out_of_memory;
    }
    int status = call_bus(supervisor, "delete", request.get(), nullptr, nullptr);
    return status == UBUS_STATUS_NOT_FOUND ? UBUS_STATUS_OK : status;
}

// Reads at most size - 1 bytes and terminates them; the number of bytes, or -1 with errno.
ssize_t read_start(const char *path, char *text, size_t size)
{
    unique_fd file(retry_eintr([&] { return open(path, O_RDONLY | O_CLOEXEC); }));
    if (!file) {
        return -1;
    }
    size_t length = 0;
    while (length + 1 < size) {
        ssize_t got = retry_eintr([&] { return read(file.get(), text + length, size - 1 - length); });
        if (got < 0) {
            return -1;
        }
        if (got == 0) {
            break;
        }
        length += static_cast<size_t>(got);
    }
    text[length] = '\0';
    return static_cast<ssize_t>(length);
}

int read_pid(const char *pidfile, int *pid)
{
    char text[32];
    if (read_start(pidfile, text, sizeof(text)) < 0) {
        return errno;
    }
    char *end = nullptr;
    long long value = strtoll(text, &end, 10); // a long may be no more than a pid
    // 0, 1 and negative numbers would reach whole groups, or the parent of all.
    if (end == text || (*end != '\0' && *end != '\n') || value <= 1 || value > INT32_MAX) {
        return EINVAL;
    }
    *pid = static_cast<int>(value);
    return 0;
}

// An argument that is the path, or an option with the path behind it.
bool names_file(const char *argument, const char *path)
{
    size_t length = strlen(argument);
    size_t path_length = strlen(path);
    return length >= path_length && strcmp(argument + length - path_length, path) == 0 &&
           (length == path_length || argument[0] == '-');
}

// Numbers are used again: a process counts only when its own command line names the pid file.
int check_owner(int pid, const char *pidfile)
{
    char path[32];
    char command[4096];
    snprintf(path, sizeof(path), "/proc/%d/cmdline", pid);
    ssize_t length = read_start(path, command, sizeof(command));
    if (length < 0) {
        return errno == ENOENT ? ESRCH : errno;
    }
    for (const char *argument = command; argument < command + length; argument += strlen(argument) + 1) {
        if (names_file(argument, pidfile)) {
            return 0;
        }
    }
    return ESRCH;
}

} // namespace

} // namespace libsys

using namespace libsys;

// The command line is left out of every message: it may hold a password.
int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int flag)
{
    argument_list command;
    int error = is_name(service) && is_name(instance) && cmdline != nullptr && flag == 0
                    ? command.add_words(cmdline)
                    : EINVAL;
    if (!error && command.count() == 0) {
        error = EINVAL;
    }
    error = error ? error : remember(service, instance);
    if (error) {
        return fail(error, __func__, "%s, %s, %d", shown(service), shown(instance), flag);
    }
    message request;
    if (!put_start(request.get(), service, instance, command)) {
        return fail(ENOMEM, __func__, "%s, %s, %s", service, instance, command[0]);
    }
    int status = call_bus(supervisor, "add", request.get(), nullptr, nullptr);
    return status ? fail_bus(status, __func__, "%s, %s, %s", service, instance, command[0]) : 0;
}

int cmdlib_procd_del_inst(const char *service, const char *instance)
{
    if (!is_name(service) || !is_name(instance)) {
        return fail(EINVAL, __func__, "%s, %s", shown(service), shown(instance));
    }
    int status = stop(service, instance);
    if (status) {
        return fail_bus(status, __func__, "%s, %s", service, instance);
    }
    forget(service, instance);
    return 0;
}

int cmdlib_kill_processes(void)
{
    int result = 0;
    for (size_t at = started.count(); at > 0; at -= 2) {
        if (cmdlib_procd_del_inst(started[at - 2], started[at - 1]) != 0) {
            result = -1;
        }
    }
    return result;
}

int cmdlib_get_proc_id(const char *pidfile, int *pid)
{
    int found = 0;
    int error = pidfile != nullptr && pid != nullptr ? read_pid(pidfile, &found) : EINVAL;
    error = error ? error : check_owner(found, pidfile);
    if (error) {
        return fail(error, __func__, "%s", shown(pidfile));
    }
    *pid = found;
    return 0;
}
