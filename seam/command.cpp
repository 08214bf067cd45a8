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

int iptlib_chain_is_exist(const char *table, const char *chain)
{
    return ask(__func__, &System::chain_exists, table, chain);
}

int iptlib_rule_is_exist(const char *table, const char *chain, const char *text)
{
    return ask(__func__, &System::rule_exists, table, chain, text);
}

int iptlib_chain_new(const char *table, const char *chain)
{
    return act(__func__, &System::chain_new, table, chain);
}

int iptlib_rule_append(const char *table, const char *chain, const char *rule)
{
    return act(__func__, &System::rule_append, table, chain, rule);
}

int iptlib_rules_flush(const char *table, const char *chain)
{
    return act(__func__, &System::rules_flush, table, chain);
}

int cmdlib_do_iptables_cmd(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const std::string line = formatted(fmt, args);
    va_end(args);
    return act(__func__, &System::iptables, line.c_str());
}

int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int flag)
{
    return act(__func__, &System::client_start, service, instance, cmdline, flag);
}

int cmdlib_procd_del_inst(const char *service, const char *instance)
{
    return act(__func__, &System::client_stop, service, instance);
}

int cmdlib_get_proc_id(const char *pidfile, int *pid)
{
    return act(__func__, &System::client_pid, pidfile, NumberOut{pid});
}

int cmdlib_kill_processes(void)
{
    return act(__func__, nothing);
}

int cslib_entry_add(const char *user, const char *provider, const char *password, const char *ipaddr)
{
    return act(__func__, &System::secret_add, user, provider, password, ipaddr);
}

int cslib_entry_del(const char *user, const char *provider)
{
    return act(__func__, &System::secret_del, user, provider);
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

int nl_init(const char *client)
{
    return act(__func__, nothing, client);
}

int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event))
{
    return act(
        __func__, [&] { process.on_link = cb; }, type);
}

int nl_duplex_init(void)
{
    return act(__func__, nothing);
}

int nl_rtmsg_init(void)
{
    return act(__func__, nothing);
}

int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event))
{
    return act(
        __func__, [&] { process.on_address = cb; }, type);
}
