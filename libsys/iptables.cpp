// Chains and rules by the program behind the iptables command, whichever kernel interface it uses: at most
// one process for a change or a table's listing and usually one for all of them, none for a question.

#include "iptables.h"

#include "exports.h"
#include "internal.h"
#include "iptables_command.h"
#include "iptables_refill.h"
#include "iptables_stream.h"

#include <cstdarg>
#include <cstring>
#include <initializer_list>

namespace libsys {

namespace {

table_view view;

// Something an option could not be mistaken for.
bool is_name(const char *text)
{
    return text != nullptr && text[0] != '\0' && text[0] != '-' && text[0] != '!';
}

// Whether the command has no words but those of `parsed`.
bool ends_with_chain(const parsed_command &parsed, const argument_list &command)
{
    return parsed.rule == command.count();
}

void follow(const parsed_command &parsed, const argument_list &command)
{
    if (parsed.option != nullptr && !strcmp(parsed.option, "-A")) {
        view.rule_appended(parsed.table, parsed.chain, command, parsed.rule);
    } else if (parsed.option == nullptr || !ends_with_chain(parsed, command)) {
        view.forget_all();
    } else if (!strcmp(parsed.option, "-N")) {
        view.chain_added(parsed.table, parsed.chain);
    } else {
        view.chain_flushed(parsed.table, parsed.chain);
    }
}

// Whether a change has been made whose answer is missing. `before` is the number of the chain's rules ahead
// of it. A chain that is empty now needs no second flushing, and one that is there was made by us: the
// program would have refused to make it twice.
int look_up(const parsed_command &parsed, size_t before, bool *made)
{
    size_t now = 0;
    view.forget(parsed.table);
    int error = view.count_rules(parsed.table, parsed.chain, &now);
    if (!strcmp(parsed.option, "-N")) {
        return error ? error : view.has_chain(parsed.table, parsed.chain, made);
    }
    *made = !strcmp(parsed.option, "-A") ? now > before : now == 0;
    return error;
}

// Makes a change by the stream: true in *made, with the view up to date. False leaves it to a command.
int by_stream(const parsed_command &parsed, const argument_list &command, bool *made)
{
    *made = false;
    const size_t first = parsed.rule - 2;
    size_t before = 0;
    // A program that is named by its path is the one to be run.
    if (parsed.option == nullptr || parsed.by_path || !stream_takes(parsed.table, command, first) ||
        (!strcmp(parsed.option, "-A") && view.count_rules(parsed.table, parsed.chain, &before) != 0)) {
        return 0;
    }
    const change answer = stream_change(parsed.table, command, first);
    if (answer == change::unknown) {
        return look_up(parsed, before, made);
    }
    if (answer == change::made) {
        *made = true;
        follow(parsed, command);
    }
    return 0;
}

// Reports a failure with the first line of what the command said.
int run_command(const char *operation, const argument_list &command, const char *shown_as)
{
    text said;
    int status = 0;
    int error = run(command, capture::everything, &said, &status);
    if (!error && status == 0) {
        return 0;
    }
    view.forget_all();
    if (!error) {
        said.get()[strcspn(said.get(), "\n")] = '\0';
        // What iptables means by its exit status: 2 wrong usage, 4 the table was locked; 1 anything else.
        error = status == 2 ? EINVAL : status == 4 ? EBUSY : EIO;
        return fail(error, operation, "%s [status %d: %s]", shown_as, status, said.get());
    }
    return fail(error, operation, "%s", shown_as);
}

// Carries out a command, by the stream where that will do, and lets the view follow. What has been done is
// read from the words, since those of a rule may name another table than the caller.
int execute(const char *operation, const argument_list &command, const char *shown_as)
{
    const parsed_command parsed = parse(command);
    if (refill_takes(parsed, command)) {
        return 0;
    }
    finish_refill();
    bool made = false;
    if (int error = by_stream(parsed, command, &made)) {
        view.forget_all();
        return fail(error, operation, "%s [the answer is missing, and the table cannot be listed]", shown_as);
    }
    if (made) {
        return 0;
    }
    int result = run_command(operation, command, shown_as);
    if (result == 0) {
        follow(parsed, command);
    }
    return result;
}

int change_chain(const char *operation, const char *table, const char *option, const char *chain)
{
    char shown_as[128];
    snprintf(shown_as, sizeof(shown_as), "%s, %s", shown(table), shown(chain));
    argument_list command;
    int error = is_name(table) && is_name(chain) ? 0 : EINVAL;
    if (!error) {
        for (const char *word : {"iptables", "-w", "-t", table, option, chain}) {
            error = error ? error : command.add(word);
        }
    }
    return error ? fail(error, operation, "%s", shown_as) : execute(operation, command, shown_as);
}

bool names_iptables(const char *program)
{
    const char *slash = strrchr(program, '/');
    return strcmp(slash != nullptr ? slash + 1 : program, "iptables") == 0;
}

int run_line(const char *operation, const char *line)
{
    argument_list command;
    int error = command.add_words(line);
    if (!error && (command.count() == 0 || !names_iptables(command[0]))) {
        error = EINVAL;
    }
    if (error) {
        return fail(error, operation, "%s", line);
    }
    if (!parse(command).waits) {
        error = command.insert(1, "-w");
    }
    return error ? fail(error, operation, "%s", line) : execute(operation, command, line);
}

} // namespace

} // namespace libsys

using namespace libsys;

int iptlib_chain_is_exist(const char *table, const char *chain)
{
    finish_refill();
    bool answer = false;
    int error = is_name(table) && is_name(chain) ? view.has_chain(table, chain, &answer) : EINVAL;
    if (error) {
        view.forget_all();
        fail(error, __func__, "%s, %s", shown(table), shown(chain));
    }
    return answer ? 1 : 0;
}

int iptlib_rule_is_exist(const char *table, const char *chain, const char *text)
{
    finish_refill();
    bool answer = false;
    int error = is_name(table) && is_name(chain) && text != nullptr && text[0]
                    ? view.has_rule(table, chain, text, &answer)
                    : EINVAL;
    if (error) {
        view.forget_all();
        fail(error, __func__, "%s, %s, %s", shown(table), shown(chain), shown(text));
    }
    return answer ? 1 : 0;
}

int iptlib_chain_new(const char *table, const char *chain)
{
    finish_refill();
    bool there = false;
    if (is_name(table) && is_name(chain) && view.has_chain(table, chain, &there) == 0 && there) {
        return 0;
    }
    return change_chain(__func__, table, "-N", chain);
}

int iptlib_rule_append(const char *table, const char *chain, const char *rule)
{
    char shown_as[512];
    snprintf(shown_as, sizeof(shown_as), "%s, %s, %s", shown(table), shown(chain), shown(rule));
    argument_list command;
    int error = is_name(table) && is_name(chain) && rule != nullptr ? 0 : EINVAL;
    if (!error) {
        for (const char *word : {"iptables", "-w", "-t", table, "-A", chain}) {
            error = error ? error : command.add(word);
        }
    }
    error = error ? error : command.add_words(rule);
    return error ? fail(error, __func__, "%s", shown_as) : execute(__func__, command, shown_as);
}

int iptlib_rules_flush(const char *table, const char *chain)
{
    finish_refill();
    return is_name(table) && is_name(chain) && begin_refill(view, table, chain)
               ? 0
               : change_chain(__func__, table, "-F", chain);
}

int cmdlib_do_iptables_cmd(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    char *line = nullptr;
    int length = vasprintf(&line, fmt, args);
    va_end(args);
    if (length < 0) {
        return fail(ENOMEM, __func__, "%s", fmt);
    }
    int result = run_line(__func__, line);
    free(line);
    return result;
}
