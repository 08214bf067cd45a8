#include "call.h"

#include <cerrno>
#include <fnmatch.h>
#include <unistd.h>
#include <vector>

namespace seam {
namespace {

constexpr int killed_status = 137;

struct Rule {
    unsigned nth;
    std::string pattern;
    long value;
    std::string out;
    unsigned seen;
};

std::vector<Rule> rules;
unsigned actions = 0;
unsigned fallible = 0;
unsigned kill_number = 0;
unsigned fail_number = 0;

const Rule *rule_for(const std::string &call)
{
    const Rule *chosen = nullptr;
    for (Rule &rule : rules) {
        if (fnmatch(rule.pattern.c_str(), call.c_str(), FNM_NOESCAPE) == 0) {
            ++rule.seen;
            if (rule.nth == 0 || rule.nth == rule.seen) {
                chosen = &rule;
            }
        }
    }
    return chosen;
}

} // namespace

std::optional<Answer> (*answerer)(const std::string &call) = nullptr;
void (*comparer)(const std::string &call, const Answer &own, const Answer &demanded) = nullptr;

std::string Call::whole() const
{
    return std::string{name_.name} + "(" + arguments_ + ")";
}

Call &Call::prefix(std::string_view value)
{
    prefix_ = value;
    return *this;
}

std::optional<long> Call::demanded()
{
    if (kind_ == Kind::saying) {
        return {};
    }
    if (kind_ == Kind::action && ++actions == kill_number) {
        trace_line("killed before " + whole());
        save();
        _exit(killed_status);
    }
    if (++fallible == fail_number) {
        trace_line("injected into " + whole());
        if (kind_ == Kind::action) {
            errno = EIO;
            return -1;
        }
        flip_ = true;
    }
    if (answerer != nullptr) {
        if (std::optional<Answer> answer = answerer(whole())) {
            out_ = std::move(answer->out);
            return answer->value;
        }
    }
    const Rule *rule = rule_for(whole());
    if (rule == nullptr) {
        return {};
    }
    out_ = rule->out;
    return rule->value;
}

int Call::done(long result, std::string_view out)
{
    std::string line = prefix_ + whole() + " = " + std::to_string(result);
    if (!out.empty()) {
        line += " -> ";
        line += out;
    }
    trace_line(line, name_.site);
    if (shown.changes && kind_ == Kind::action) {
        trace_changes();
    }
    return static_cast<int>(result);
}

void Call::say()
{
    trace_line(prefix_ + whole(), name_.site);
}

void trace_changes()
{
    for (const std::string &fact : changed_facts()) {
        trace_line("changed " + quote(fact));
    }
}

void demand(unsigned nth, const std::string &pattern, long value, const std::string &out)
{
    const bool bare = pattern.find('(') == std::string::npos;
    rules.push_back({nth, bare ? pattern + "(*" : pattern, value, out, 0});
}

void demand_nothing()
{
    rules.clear();
}

void kill_at(unsigned n)
{
    kill_number = n;
}

void fail_at(unsigned n)
{
    fail_number = n;
}

unsigned actions_counted()
{
    return actions;
}

unsigned fallible_counted()
{
    return fallible;
}

} // namespace seam
