#include "check/daemon.h"

#include "libsys/launch.h"
#include "libsys/text.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>

namespace ctl {

namespace {

constexpr int longest_plan_ms = 20000; // the planner ends its daemon after 15 s
constexpr int good = 0;
constexpr int unreadable = 2;
constexpr int meet = 3;

// All that a program writes, and its status; -1 where it did not end by itself.
int collect(const char *path, char *const *words, libsys::text &said)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    libsys::unique_fd from(ends[0]);
    libsys::unique_fd to(ends[1]);
    pid_t process = 0;
    const libsys::standard_files files = {libsys::standard_files::nothing, to.get(), to.get()};
    if (libsys::spawn(&process, path, words, files) != 0) {
        return -1;
    }
    to.reset();
    char part[4096];
    ssize_t got = 0;
    while (libsys::says_more(from.get(), process, path, longest_plan_ms) &&
           (got = read(from.get(), part, sizeof(part))) > 0) {
        said.append({part, static_cast<size_t>(got)});
    }
    int status = 0;
    libsys::retry_eintr([&] { return waitpid(process, &status, 0); });
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void add_errors(json_object *phase, json_object *says)
{
    for (json_object *message : items(get(phase, "messages"))) {
        if (is(message, "level", "error")) {
            append(says, text_of(message, "text"));
        }
    }
}

} // namespace

void ask_planner(const char *board, const char *config, json_object *facts)
{
    char path[PATH_MAX];
    if (libsys::find_program("ivarode-plan", path) != 0) {
        return;
    }
    const char *words[] = {"ivarode-plan", "--board", board, "--config", config, "--json", nullptr};
    libsys::text said;
    const int status = collect(path, const_cast<char *const *>(words), said);
    if (status == unreadable) {
        return;
    }
    json_object *made = put_table(facts, "daemon");
    json_object *says = put_list(made, "says");
    char *output = said.get();
    const json plan{json_tokener_parse(output)};
    if (!json_object_is_type(plan.get(), json_type_object)) {
        put_flag(made, "starts", false);
        output[strcspn(output, "\n")] = '\0';
        append(says, output);
    } else {
        const char *ending = text_of(plan.get(), "ending");
        const bool goes_on = *ending == '\0';
        put_flag(made, "starts", goes_on && (status == good || status == meet));
        for (json_object *phase : items(get(plan.get(), "phases"))) {
            add_errors(phase, says);
        }
        if (!goes_on) {
            append(says, ending);
        }
        if (status == meet) {
            append(says, "ports meet that should not: see ivarode-plan --quiet");
        }
    }
}

} // namespace ctl
