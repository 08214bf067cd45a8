// iptables, supervised processes, CHAP secrets, the database, and the kernel's events.

#include "platform/command.h"

#include "call.h"
#include "model.h"
#include "platform/events.h"
#include "script.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace recorder;

struct sqlite3 {
    bool open;
};

namespace {

constexpr int first_pid = 1001;
sqlite3 database{};
int started = 0;

// The pid file that a command line asks for with "-p".
std::string pid_file_of(const std::string &cmdline)
{
    const size_t at = cmdline.find(" -p ");
    if (at == std::string::npos) {
        return {};
    }
    const size_t begin = at + 4;
    return cmdline.substr(begin, cmdline.find(' ', begin) - begin);
}

const char *handle_text(const sqlite3 *db)
{
    if (db == nullptr) {
        return "null";
    }
    return db == &database && database.open ? "db" : "closed-db";
}

} // namespace

bool recorder::database_open()
{
    return database.open;
}

int iptlib_chain_is_exist(const char *table, const char *chain)
{
    return Call("iptlib_chain_is_exist", Call::Kind::question).text(table).text(chain).ask([&] {
        return model.chain_exists(plain(table), plain(chain)) ? 1 : 0;
    });
}

int iptlib_rule_is_exist(const char *table, const char *chain, const char *text)
{
    return Call("iptlib_rule_is_exist", Call::Kind::question).text(table).text(chain).text(text).ask([&] {
        return model.rule_exists(plain(table), plain(chain), plain(text)) ? 1 : 0;
    });
}

int iptlib_chain_new(const char *table, const char *chain)
{
    return Call("iptlib_chain_new").text(table).text(chain).act([&] {
        return model.chain_new(plain(table), plain(chain));
    });
}

int iptlib_rule_append(const char *table, const char *chain, const char *rule)
{
    return Call("iptlib_rule_append").text(table).text(chain).text(rule).act([&] {
        return model.rule_append(plain(table), plain(chain), plain(rule));
    });
}

int iptlib_rules_flush(const char *table, const char *chain)
{
    return Call("iptlib_rules_flush").text(table).text(chain).act([&] {
        return model.rules_flush(plain(table), plain(chain));
    });
}

int cmdlib_do_iptables_cmd(const char *fmt, ...)
{
    char line[1024];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    return Call("cmdlib_do_iptables_cmd").text(line).act([&] { return model.iptables(line); });
}

int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int flag)
{
    return Call("cmdlib_procd_start_inst").text(service).text(instance).text(cmdline).number(flag).act([&] {
        const std::string key = "process " + plain(service) + " " + plain(instance);
        if (model.get(key) != plain(cmdline)) {
            model.set(key, plain(cmdline));
        }
        const std::string file = pid_file_of(plain(cmdline));
        if (!file.empty() && !model.has("pid " + file)) {
            model.set("pid " + file, std::to_string(first_pid + started));
        }
        started++;
        return 0;
    });
}

int cmdlib_procd_del_inst(const char *service, const char *instance)
{
    return Call("cmdlib_procd_del_inst").text(service).text(instance).act([&] {
        const std::string key = "process " + plain(service) + " " + plain(instance);
        const std::string file = pid_file_of(model.get(key));
        model.drop(key);
        if (!file.empty()) {
            model.drop("pid " + file);
        }
        return 0;
    });
}

int cmdlib_get_proc_id(const char *pidfile, int *pid)
{
    Call call("cmdlib_get_proc_id");
    call.text(pidfile);
    return call.act(
        [&] {
            const std::string &wanted = call.demanded_out();
            const std::string known = wanted.empty() ? model.get("pid " + plain(pidfile)) : wanted;
            if (known.empty()) {
                return -1;
            }
            *pid = std::atoi(known.c_str());
            return 0;
        },
        [&] { return std::to_string(*pid); });
}

int cmdlib_kill_processes(void)
{
    return Call("cmdlib_kill_processes").act([] { return 0; });
}

int cslib_entry_add(const char *user, const char *provider, const char *password, const char *ipaddr)
{
    return Call("cslib_entry_add").text(user).text(provider).text(password).text(ipaddr).act([&] {
        model.set("secret " + plain(user) + " " + plain(provider), plain(password) + " " + plain(ipaddr));
        return 0;
    });
}

int cslib_entry_del(const char *user, const char *provider)
{
    return Call("cslib_entry_del").text(user).text(provider).act([&] {
        const std::string key = "secret " + plain(user) + " " + plain(provider);
        const int result = model.has(key) ? 0 : -1;
        model.drop(key);
        return result;
    });
}

int sqlite3_db_open(const char *path, sqlite3 **db)
{
    return Call("sqlite3_db_open").text(path).act([&] {
        database.open = true;
        *db = &database;
        return 0;
    });
}

int sqlite3_db_execsql(sqlite3 *db, const char *sql)
{
    return Call("sqlite3_db_execsql").raw(handle_text(db)).text(sql).act([] { return 0; });
}

int sqlite3_db_colse(sqlite3 *db)
{
    Call call("sqlite3_db_colse");
    call.raw(handle_text(db));
    if (db == &database) {
        database.open = false;
    }
    return call.act([] { return 0; });
}

int nl_init(const char *client)
{
    return Call("nl_init").text(client).act([] { return 0; });
}

int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event))
{
    return Call("nl_rx_event_reg").number(type).act([&] {
        scenario.on_link = cb;
        return 0;
    });
}

int nl_duplex_init(void)
{
    return Call("nl_duplex_init").act([] { return 0; });
}

int nl_rtmsg_init(void)
{
    return Call("nl_rtmsg_init").act([] { return 0; });
}

int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event))
{
    return Call("nl_rtmsg_handler_reg").number(type).act([&] {
        scenario.on_address = cb;
        return 0;
    });
}
