// iptables, supervised processes, CHAP secrets, the database, and the kernel's events.

#include "platform/command.h"

#include "call.h"
#include "process.h"

#include <cstdarg>

using namespace seam;

struct sqlite3 {};

namespace {

sqlite3 database;

Word handle(const sqlite3 *db)
{
    if (db == nullptr) {
        return {"null"};
    }
    return {db == &database && process.database_open ? "db" : "closed-db"};
}

} // namespace

int cmdlib_do_iptables_cmd(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const std::string line = formatted(fmt, args);
    va_end(args);
    return act(__func__, &System::iptables, line.c_str());
}

int sqlite3_db_open(const char *path, sqlite3 **db)
{
    const auto open = [&] {
        process.database_open = true;
        *db = &database;
    };
    return act(__func__, open, path);
}

int sqlite3_db_execsql(sqlite3 *db, const char *sql)
{
    return act(__func__, nothing, handle(db), sql);
}

// Closed whatever the result.
int sqlite3_db_colse(sqlite3 *db)
{
    const Word shown_handle = handle(db);
    if (db == &database) {
        process.database_open = false;
    }
    return act(__func__, nothing, shown_handle);
}

int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event))
{
    return act(
        __func__, [&] { process.on_link = cb; }, type);
}

int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event))
{
    return act(
        __func__, [&] { process.on_address = cb; }, type);
}
