#include "iptables_command.h"

#include "iptables_stream.h"

#include <cstring>

namespace libsys {

namespace {

// Whether a word may name the table: "-t", "-tnat", "-vtnat", "--table=nat", or as much as is left of
// "--table".
bool may_name_table(const char *word)
{
    if (strncmp(word, "--", 2) != 0) {
        return word[0] == '-' && strchr(word, 't') != nullptr;
    }
    const size_t length = strcspn(word, "=");
    return length > 2 && strncmp(word, "--table", length) == 0;
}

} // namespace

parsed_command parse(const argument_list &command)
{
    parsed_command result;
    result.by_path = command.count() > 0 && strchr(command[0], '/') != nullptr;
    size_t at = 1;
    auto is = [&](const char *word) { return at < command.count() && strcmp(command[at], word) == 0; };
    for (;;) {
        if (is("-w")) {
            result.waits = true;
            ++at;
        } else if (is("-t") && at + 1 < command.count()) {
            result.table = command[at + 1];
            at += 2;
        } else {
            break;
        }
    }
    bool followed = is("-A") || is("-N") || is("-F");
    if (followed && at + 1 < command.count()) {
        result.option = command[at];
        result.chain = command[at + 1];
        result.rule = at + 2;
    }
    for (; at < command.count(); ++at) {
        result.waits = result.waits || is("-w") || is("--wait");
        if (may_name_table(command[at])) {
            result.option = nullptr;
        }
    }
    return result;
}

bool change_quietly(const char *table, const argument_list &command, size_t first)
{
    if (stream_takes(table, command, first) && stream_change(table, command, first) == change::made) {
        return true;
    }
    text said;
    int status = 0;
    return run(command, capture::everything, &said, &status) == 0 && status == 0;
}

} // namespace libsys
