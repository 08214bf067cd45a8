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

json_object *chain_of(json_object *chains, std::string_view name)
{
    json_object *found = find(chains, "chain", name);
    if (found != nullptr) {
        return found;
    }
    json made = table();
    put(made.get(), "chain", name);
    put(made.get(), "rules", list());
    append(chains, std::move(made));
    return find(chains, "chain", name);
}

// "-P CHAIN POLICY", "-N CHAIN" or "-A CHAIN RULE".
void take_line(json_object *chains, char *line)
{
    if (line[0] != '-' || line[1] == '\0' || line[2] != ' ') {
        return;
    }
    char *name = line + strlen("-A ");
    char *rest = strchr(name, ' ');
    const std::string_view chain(name, rest != nullptr ? static_cast<size_t>(rest - name) : strlen(name));
    json_object *found = chain_of(chains, chain);
    if (line[1] == 'A' && rest != nullptr) {
        json made = table();
        put_counters(made.get(), rest);
        put(made.get(), "rule", rest + 1);
        if (const char *target = strstr(rest, " -j ")) {
            target += strlen(" -j ");
            put(made.get(), "target", std::string_view(target, strcspn(target, " ")));
        }
        append(get(found, "rules"), std::move(made));
    } else if (line[1] == 'P' && rest != nullptr) {
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
    json made = table();
    for (const char *name : tables) {
        json chains = list();
        if (!list_table(name, chains.get())) {
            note_unread(facts, "iptables does not list table %s", name);
            return;
        }
        put(made.get(), name, std::move(chains));
    }
    put(facts, "chains", std::move(made));
}

} // namespace ctl
