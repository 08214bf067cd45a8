// iptables, supervised processes, CHAP secrets and the database. 0 success, non-zero failure, except
// the two iptlib_*_is_exist queries.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sqlite3 sqlite3;

// Non-zero when the chain exists, or when a rule of the chain contains the text.
int iptlib_chain_is_exist(const char *table, const char *chain);
int iptlib_rule_is_exist(const char *table, const char *chain, const char *text);

int iptlib_chain_new(const char *table, const char *chain);
// rule: iptables arguments, as in "-j somewhere".
int iptlib_rule_append(const char *table, const char *chain, const char *rule);
// Within a start (output.h) the rules may stay until those appended next have taken their places.
int iptlib_rules_flush(const char *table, const char *chain);
// A whole iptables command line.
int cmdlib_do_iptables_cmd(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Instances of the platform's process supervisor; flag is 0.
int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int flag);
int cmdlib_procd_del_inst(const char *service, const char *instance);
// The process that a pid file names.
int cmdlib_get_proc_id(const char *pidfile, int *pid);
// Ends every instance that this process started.
int cmdlib_kill_processes(void);

// The CHAP secrets of PPP peers.
int cslib_entry_add(const char *user, const char *provider, const char *password, const char *ipaddr);
int cslib_entry_del(const char *user, const char *provider);

// One SQLite database; the handle is the caller's until sqlite3_db_colse (the library spells it so).
int sqlite3_db_open(const char *path, sqlite3 **db);
int sqlite3_db_execsql(sqlite3 *db, const char *sql);
int sqlite3_db_colse(sqlite3 *db);

#ifdef __cplusplus
}
#endif
