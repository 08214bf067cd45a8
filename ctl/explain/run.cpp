#include "explain/explain.h"
#include "gather.h"
#include "report.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace ctl {

statement said;

namespace {

constexpr const char *names_of_verdicts[] = {"ok", "failed", "unknown"};

finding state(verdict is, const char *format, va_list args)
{
    vsnprintf(said.sentence, sizeof(said.sentence), format, args);
    said.remedy[0] = '\0';
    return is;
}

bool is_of(const check &each, const subject &about)
{
    return (each.of & about.kind) != 0 || ((each.of & an_uplink) != 0 && about.is_uplink());
}

void name_subject(const subject &about, char *out, size_t size)
{
    if (about.kind == a_port) {
        snprintf(out, size, "port %s", shown(about.own, "port"));
    } else {
        snprintf(out, size, "%s", about.name());
    }
}

void put_finding(const check &of, finding found, json_object *out)
{
    put(out, "check", of.name);
    put(out, "verdict", names_of_verdicts[static_cast<size_t>(found)]);
    put(out, "sentence", said.sentence);
    if (said.remedy[0] != '\0') {
        put(out, "remedy", said.remedy);
    }
}

// A cause that is known already has been another subject's, too.
void add_problem(const subject &about, const check &of, finding found, json_object *problems)
{
    if (find(problems, "sentence", said.sentence) != nullptr) {
        return;
    }
    char name[80];
    name_subject(about, name, sizeof(name));
    json_object *problem = append_table(problems);
    put_finding(of, found, problem);
    put(problem, "subject", name);
}

void find_problem(const subject &about, json_object *problems)
{
    for (size_t i = 0; i < check_count; ++i) {
        if (!is_of(checks[i], about)) {
            continue;
        }
        const finding found = checks[i].look(about);
        if (found == verdict::bad) {
            if (!checks[i].deliberate) {
                add_problem(about, checks[i], found, problems);
            }
            return;
        }
    }
}

constexpr struct {
    kinds kind;
    const char *list;
} all_kinds[] = {
    {an_interface, "interfaces"}, {a_port, "ports"}, {a_route, "static_routes"}, {an_account, "ppp_users"}};

// By "port N" or a name; without an own element when there is no such thing.
subject subject_of(const words &given, json_object *facts)
{
    if (strcmp(given[0], "port") == 0 && given.count == 2) {
        char *rest = nullptr;
        const long number = strtol(given[1], &rest, 10);
        return {a_port, facts,
                *rest == '\0' && rest != given[1] ? find(get(facts, "ports"), "port", number) : nullptr};
    }
    for (const auto &[kind, elements] : all_kinds) {
        if (json_object *own = kind != a_port ? find(get(facts, elements), "name", given[0]) : nullptr) {
            return {kind, facts, own};
        }
    }
    return {an_interface, facts, nullptr};
}

// False when something is bad.
bool explain(const subject &about, json_object *facts)
{
    json_object *lines = put_list(facts, "checks");
    bool well = true;
    for (size_t i = 0; i < check_count; ++i) {
        if (!is_of(checks[i], about)) {
            continue;
        }
        const finding found = checks[i].look(about);
        if (found == verdict::skipped) {
            continue;
        }
        if (found == verdict::bad && well) {
            well = false;
            put_finding(checks[i], found, put_table(facts, "first_cause"));
        }
        put_finding(checks[i], found, append_table(lines));
    }
    return well;
}

} // namespace

finding good(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const finding out = state(verdict::good, format, args);
    va_end(args);
    return out;
}

finding unsure(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const finding out = state(verdict::unsure, format, args);
    va_end(args);
    return out;
}

finding bad(const char *remedy, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    finding out = state(verdict::bad, format, args);
    va_end(args);
    snprintf(said.remedy, sizeof(said.remedy), "%s", remedy);
    return out;
}

finding with_remedy(finding of, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(said.remedy, sizeof(said.remedy), format, args);
    va_end(args);
    return of;
}

json_object *subject::section() const
{
    json_object *packages = get(facts, "configuration");
    return find(get(packages, is_uplink()       ? "wan_intf"
                              : kind == a_route ? "route_config"
                                                : "lan_intf"),
                "name", text_of(own, "name"));
}

json_object *subject::device(const char *device_name) const
{
    return find(get(facts, "devices"), "name", device_name);
}

size_t find_problems(json_object *facts)
{
    json_object *problems = put_list(facts, "problems");
    for (const auto &listed : all_kinds) {
        for (json_object *own : items(get(facts, listed.list))) {
            find_problem({listed.kind, facts, own}, problems);
        }
    }
    return count_of(problems);
}

finding broken_section(json_object *facts)
{
    finding broken = skipped();
    for (json_object *own : items(get(facts, "interfaces"))) {
        for (const auto look : {look_options, look_number_of_board}) {
            broken = broken == verdict::bad ? broken : look({an_interface, facts, own});
        }
    }
    return broken;
}

int gather_explain(const words &given, json_object *facts)
{
    if (given.count == 0 || given.count > 2 || (given.count == 2 && strcmp(given[0], "port") != 0)) {
        complain("explain takes the name of an interface, a static route or a PPP user, or port N");
        return wrong_usage;
    }
    const json router = table();
    read_router(router.get());
    const subject about = subject_of(given, router.get());
    if (about.own == nullptr) {
        complain("nothing is named \"%.80s%s%.20s\": status lists interfaces, ports and static routes",
                 given[0], given.count > 1 ? " " : "", given.count > 1 ? given[1] : "");
        return failed;
    }
    char name[80];
    name_subject(about, name, sizeof(name));
    put(facts, "subject", name);
    const bool well = explain(about, facts);
    share(router.get(), "unread", facts, "unread");
    return well ? done : failed;
}

} // namespace ctl
