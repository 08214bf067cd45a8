// SQLite, loaded when the first database is opened: a router that never records a PPP login pays nothing for
// it.
#include "exports.h"
#include "internal.h"

#include <dlfcn.h>

namespace {

// The parts of SQLite's stable interface that are used, by their documented values.
constexpr int result_ok = 0;
constexpr int open_read_write = 2;
// How long a statement waits for other programs that use the database. The bus waits as long, so not for
// ever.
constexpr int busy_milliseconds = 3000;

struct sqlite_library {
    int (*open_v2)(const char *path, sqlite3 **db, int flags, const char *vfs);
    int (*busy_timeout)(sqlite3 *db, int milliseconds);
    int (*exec)(sqlite3 *db, const char *sql, int (*row)(void *, int, char **, char **), void *arg,
                char **message);
    const char *(*errmsg)(sqlite3 *db);
    int (*close)(sqlite3 *db);
};

sqlite_library sqlite;
bool loaded = false;

template <typename Function> bool find(void *library, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

bool load()
{
    if (loaded) {
        return true;
    }
    void *library = dlopen("libsqlite3.so.0", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        library = dlopen("libsqlite3.so", RTLD_NOW | RTLD_LOCAL);
    }
    if (library == nullptr) {
        return false;
    }
    loaded = find(library, "sqlite3_open_v2", sqlite.open_v2) &&
             find(library, "sqlite3_busy_timeout", sqlite.busy_timeout) &&
             find(library, "sqlite3_exec", sqlite.exec) && find(library, "sqlite3_errmsg", sqlite.errmsg) &&
             find(library, "sqlite3_close", sqlite.close);
    if (!loaded) {
        dlclose(library);
    }
    return loaded;
}

int errno_of(int code)
{
    switch (code & 0xff) {
    case 1: // an error in the statement
    case 20:
    case 21:
        return EINVAL;
    case 3:
    case 23:
        return EACCES;
    case 5:
    case 6:
        return EBUSY;
    case 7:
        return ENOMEM;
    case 8:
        return EROFS;
    case 11:
    case 26:
        return EBADMSG;
    case 13:
        return ENOSPC;
    case 14:
        return ENOENT;
    case 19: // a constraint, such as uniqueness
        return EEXIST;
    default:
        return EIO;
    }
}

} // namespace

// An absent file is an error: the owner of the tables makes it, and an empty database would only hide that.
int sqlite3_db_open(const char *path, sqlite3 **db)
{
    constexpr const char *operation = "sqlite3_db_open";
    if (path == nullptr || db == nullptr) {
        return libsys::fail(EINVAL, operation, "%s", libsys::shown(path));
    }
    *db = nullptr;
    if (!load()) {
        return libsys::fail(ELIBACC, operation, "%s", path);
    }
    sqlite3 *opened = nullptr;
    int code = sqlite.open_v2(path, &opened, open_read_write, nullptr);
    if (code == result_ok) {
        code = sqlite.busy_timeout(opened, busy_milliseconds);
    }
    if (code != result_ok) {
        // Even a failed open leaves a handle to close; its message is gone afterwards.
        libsys::fail(errno_of(code), operation, "%s: %s", path,
                     opened != nullptr ? sqlite.errmsg(opened) : "out of memory");
        if (opened != nullptr) {
            sqlite.close(opened);
        }
        errno = errno_of(code);
        return -1;
    }
    *db = opened;
    return 0;
}

int sqlite3_db_execsql(sqlite3 *db, const char *sql)
{
    constexpr const char *operation = "sqlite3_db_execsql";
    if (db == nullptr || sql == nullptr || !loaded) {
        return libsys::fail(EINVAL, operation, "%s", libsys::shown(sql));
    }
    int code = sqlite.exec(db, sql, nullptr, nullptr, nullptr);
    return code == result_ok ? 0 : libsys::fail(errno_of(code), operation, "%s: %s", sqlite.errmsg(db), sql);
}

int sqlite3_db_colse(sqlite3 *db)
{
    if (db == nullptr || !loaded) {
        return 0;
    }
    int code = sqlite.close(db);
    return code == result_ok ? 0 : libsys::fail(errno_of(code), "sqlite3_db_colse", "%s", sqlite.errmsg(db));
}
