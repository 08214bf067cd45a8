// One small file for each WAN, "name=value" lines, for scripts that want to know the state of a WAN.
#include "device.h"
#include "exports.h"
#include "file.h"
#include "ipv4.h"
#include "start.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using libsys::shown;

constexpr const char *state = "/var/run/ivarode";
constexpr const char *folder = "/var/run/ivarode/wan";
constexpr const char *lock_path = "/var/run/ivarode/wan/.lock";

struct row {
    const char *name;
    const char *proto;
    const char *address[5];
};

constexpr const char *address_keys[5] = {"ipaddr", "netmask", "gateway", "addr4", "addr5"};

// A row's file bears the name of its interface, and names with a dot in front are those of locks and of rows
// being written.
bool row_path(const char *name, char (&path)[PATH_MAX])
{
    constexpr size_t longest = 200;
    if (name == nullptr || !*name || name[0] == '.' || strlen(name) > longest) {
        return false;
    }
    for (const char *c = name; *c; ++c) {
        if (*c == '/' || static_cast<unsigned char>(*c) < ' ') {
            return false;
        }
    }
    snprintf(path, sizeof(path), "%s/%s", folder, name);
    return true;
}

// Scripts read the rows, some of them with the shell itself: nothing in a value may mean anything to it.
bool plain(const char *value)
{
    for (; value != nullptr && *value; ++value) {
        bool letter_or_digit = (*value >= '0' && *value <= '9') || (*value >= 'A' && *value <= 'Z') ||
                               (*value >= 'a' && *value <= 'z');
        if (!letter_or_digit && strchr(".:/_-", *value) == nullptr) {
            return false;
        }
    }
    return true;
}

void append_line(libsys::text &content, const char *key, const char *value)
{
    content.append(key);
    content.append('=');
    content.append(value != nullptr ? value : "");
    content.append('\n');
}

int write_row(const char *path, const row &wanted)
{
    libsys::text content;
    append_line(content, "name", wanted.name);
    append_line(content, "proto", wanted.proto);
    for (size_t i = 0; i < std::size(address_keys); ++i) {
        append_line(content, address_keys[i], wanted.address[i]);
    }
    return content.ok() ? libsys::replace_file(path, 0644, content.view(), libsys::links::replace) : ENOMEM;
}

constexpr size_t longest_row = 4096;
constexpr const char *unknown = "0.0.0.0";

bool knows_no_address(const row &wanted)
{
    return std::all_of(std::begin(wanted.address), std::end(wanted.address), [](const char *address) {
        return address == nullptr || strcmp(address, unknown) == 0;
    });
}

// Whether the row that is there begins as a client's script has written it for this protocol, and with an
// address that the device still has.
bool serves_on(const char *path, const row &wanted)
{
    libsys::text content;
    if (libsys::read_file(path, content, longest_row) != 0) {
        return false;
    }
    libsys::text head;
    append_line(head, "name", wanted.name);
    append_line(head, "proto", wanted.proto);
    head.append(address_keys[0]);
    head.append('=');
    if (!head.ok() || !content.view().starts_with(head.view())) {
        return false;
    }
    char *address = content.get() + head.view().size();
    address[strcspn(address, "\n")] = '\0';
    uint32_t ip = 0;
    return libsys::parse_ipv4(address, &ip) && ip != 0 && libsys::device_has_address(wanted.name, ip);
}

// A link in its place, or another user's folder, would lead the rows elsewhere.
int check_own(const char *path)
{
    struct stat info;
    if (lstat(path, &info) != 0) {
        return errno;
    }
    const bool own = S_ISDIR(info.st_mode) && info.st_uid == geteuid();
    return own ? 0 : EPERM;
}

int lock_rows(libsys::file_lock &lock)
{
    int error = libsys::make_folders(folder);
    error = error ? error : check_own(state);
    error = error ? error : check_own(folder);
    return error ? error : lock.acquire(lock_path);
}

int store(const row &wanted, bool must_exist)
{
    char path[PATH_MAX];
    bool valid =
        row_path(wanted.name, path) && wanted.proto != nullptr && plain(wanted.proto) && plain(wanted.name);
    for (const char *address : wanted.address) {
        valid = valid && plain(address);
    }
    if (!valid) {
        return EINVAL;
    }
    libsys::file_lock lock;
    if (int error = lock_rows(lock)) {
        return error;
    }
    struct stat info;
    if (must_exist && lstat(path, &info) != 0) {
        return errno;
    }
    // The client of a WAN outlives the daemon, and its script will not write the row once more.
    if (!must_exist && libsys::starting() && knows_no_address(wanted) && serves_on(path, wanted)) {
        return 0;
    }
    return write_row(path, wanted);
}

int reported(int error, const char *operation, const row &wanted)
{
    return error == 0
               ? 0
               : libsys::fail(error, operation, "%s, %s, %s, %s, %s, %s, %s", shown(wanted.name),
                              shown(wanted.proto), shown(wanted.address[0]), shown(wanted.address[1]),
                              shown(wanted.address[2]), shown(wanted.address[3]), shown(wanted.address[4]));
}

} // namespace

int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    row wanted = {name, proto, {ipaddr, netmask, gateway, addr4, addr5}};
    return reported(store(wanted, false), "netlib_waninfo_db_insert", wanted);
}

int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    row wanted = {name, proto, {ipaddr, netmask, gateway, addr4, addr5}};
    return reported(store(wanted, true), "netlib_waninfo_db_update", wanted);
}

int netlib_waninfo_db_del_byname(const char *name)
{
    constexpr const char *operation = "netlib_waninfo_db_del_byname";
    char path[PATH_MAX];
    if (!row_path(name, path)) {
        return libsys::fail(EINVAL, operation, "%s", shown(name));
    }
    libsys::file_lock lock;
    if (int error = lock_rows(lock)) {
        return libsys::fail(error, operation, "%s", name);
    }
    if (unlink(path) != 0 && errno != ENOENT) {
        return libsys::fail(errno, operation, "%s", name);
    }
    return 0;
}
