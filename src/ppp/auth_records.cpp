#include "ppp/auth_records.h"

#include "core/log.h"
#include "core/result.h"
#include "core/scope.h"
#include "core/text.h"
#include "platform/command.h"

namespace {

constexpr const char *database = "/tmp/calmora/db/net_stat.db";
constexpr size_t statement_buffer = 1024;
constexpr size_t statement_size = 1023; // terminator included

const char *text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

} // namespace

int pppauth_db_insert(const char *username, const char *type, const char *ipaddr, const char *dial_mac,
                      const char *dial_ip)
{
    char statement[statement_buffer] = {};
    char uptime[name_size] = {};
    sqlite3 *db = nullptr;
    if (sqlite3_db_open(database, &db) != 0) {
        NET_ERROR("net auth db record open error\n");
        return rv_database;
    }
    const scope_release closer(db, sqlite3_db_colse);
    timelib_curtime_str_get(uptime, sizeof(uptime));
    text_format(statement, statement_size,
                "insert into pppauth_user_table(type,username,ipaddr,dial_mac,dial_ip,uptime) "
                "values('%s','%s','%s','%s','%s','%s');",
                type, text_or_empty(username), ipaddr, text_or_empty(dial_mac), text_or_empty(dial_ip),
                uptime);
    if (sqlite3_db_execsql(db, statement) != 0) {
        NET_ERROR("net auth db record exec sql error,sql=%s\n", statement);
        return rv_database;
    }
    return rv_ok;
}

int pppauth_db_delete(const char *username, const char *type, const char *ipaddr, const char *)
{
    char statement[statement_buffer] = {};
    sqlite3 *db = nullptr;
    if (sqlite3_db_open(database, &db) != 0) {
        NET_ERROR("net auth db delete open error\n");
        return rv_database;
    }
    const scope_release closer(db, sqlite3_db_colse);
    text_format(statement, statement_size,
                "delete from pppauth_user_table\twhere type='%s' and username='%s' and ipaddr='%s'", type,
                username, ipaddr);
    if (sqlite3_db_execsql(db, statement) != 0) {
        NET_ERROR("net auth db delete exec sql error\n");
        return rv_database;
    }
    return rv_ok;
}
