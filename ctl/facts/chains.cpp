// The chains of iptables with their rules and counters, as the command lists them.

#include "facts/router.h"
#include "libsys/command.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

constexpr const char *tables[] = {"mangle", "nat", "filter"};

// Takes " -c PACKETS BYTES" out of a line.
void put_counters(json_object *made, char *line)
{
    char *counters = strstr(line, " -c ");
    if (counters == nullptr) {
        return;
    }
    char *rest = nullptr;
    put_number(made, "packets", strtoll(counters + strlen(" -c "), &rest, 10));
    put_number(made, "bytes", strtoll(rest, &rest, 10));
    memmove(counters, rest, strlen(rest) + 1);
}

json_object *chain_of(json_object *chains, const char *name)
{
    json_object *chain = find(chains, "chain", name);
    if (chain == nullptr) {
        chain = append_table(chains);
        put(chain, "chain", name);
        put_list(chain, "rules");
    }
    return chain;
}

// "-P CHAIN POLICY", "-N CHAIN" or "-A CHAIN RULE".
void take_line(json_object *chains, char *line)
{
    if (line[0] != '-' || line[1] == '\0' || line[2] != ' ') {
        return;
    }
    char *name = line + strlen("-A ");
    char *rest = strchr(name, ' ');
    char *separator = rest != nullptr ? rest : name + strlen(name);
    *separator = '\0';
    json_object *found = chain_of(chains, name);
    if (rest == nullptr) {
        return;
    }
    *separator = ' '; // which counters stand behind
    if (line[1] == 'A') {
        json_object *made = append_table(get(found, "rules"));
        put_counters(made, rest);
        put(made, "rule", rest + 1);
        if (char *target = strstr(rest, " -j ")) {
            target += strlen(" -j ");
            target[strcspn(target, " ")] = '\0';
            put(made, "target", target);
        }
    } else if (line[1] == 'P') {
        put_counters(found, rest);
        put(found, "policy", rest + 1);
    }
}

bool list_table(const char *name, json_object *chains)
{
    libsys::argument_list command;
    libsys::text said;
    int status = 0;
    // The number bounds the wait for others who work on the tables.
    for (const char *word : {"iptables", "-w", "3", "-t", name, "-v", "-S"}) {
        command.add(word);
    }
    if (libsys::run(command, libsys::capture::everything, &said, &status) != 0 || status != 0) {
        return false;
    }
    for (char *line = strtok(said.get(), "\n"); line != nullptr; line = strtok(nullptr, "\n")) {
        take_line(chains, line);
    }
    return true;
}

} // namespace

void add_chains(json_object *facts)
{
    json_object *made = put_table(facts, "chains");
    for (const char *name : tables) {
        if (!list_table(name, put_list(made, name))) {
            note_unread(facts, "iptables does not list table %s", name);
            json_object_object_del(facts, "chains");
            return;
        }
    }
}

} // namespace ctl
