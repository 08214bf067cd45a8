// iptables, supervised processes and CHAP secrets.

#include "platform/command.h"

#include "described.h"

using namespace seam;

int iptlib_chain_is_exist(const char *table, const char *chain)
{
    return ask<iptlib_chain_is_exist, &System::chain_exists>(__func__, table, chain);
}

int iptlib_rule_is_exist(const char *table, const char *chain, const char *text)
{
    return ask<iptlib_rule_is_exist, &System::rule_exists>(__func__, table, chain, text);
}

int iptlib_chain_new(const char *table, const char *chain)
{
    return act<iptlib_chain_new, &System::chain_new>(__func__, table, chain);
}

int iptlib_rule_append(const char *table, const char *chain, const char *rule)
{
    return act<iptlib_rule_append, &System::rule_append>(__func__, table, chain, rule);
}

int iptlib_rules_flush(const char *table, const char *chain)
{
    return act<iptlib_rules_flush, &System::rules_flush>(__func__, table, chain);
}

int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int flag)
{
    return act<cmdlib_procd_start_inst, &System::client_start>(__func__, service, instance, cmdline, flag);
}

int cmdlib_procd_del_inst(const char *service, const char *instance)
{
    return act<cmdlib_procd_del_inst, &System::client_stop>(__func__, service, instance);
}

int cmdlib_get_proc_id(const char *pidfile, int *pid)
{
    return act<cmdlib_get_proc_id, &System::client_pid>(__func__, pidfile, NumberOut{pid});
}

int cmdlib_kill_processes(void)
{
    return act<cmdlib_kill_processes, &System::clients_end>(__func__);
}

int cslib_entry_add(const char *user, const char *provider, const char *password, const char *ipaddr)
{
    return act<cslib_entry_add, &System::secret_add>(__func__, user, provider, Secret{password}, ipaddr);
}

int cslib_entry_del(const char *user, const char *provider)
{
    return act<cslib_entry_del, &System::secret_del>(__func__, user, provider);
}
