// The commands that change the configuration in use: "apply", "confirm", "rollback". Each step leaves the
// files so that the next one, the service that watches over the time, or the next boot can go on from there.

#include "apply/pending.h"
#include "apply/service.h"
#include "check/check.h"
#include "gather.h"
#include "report.h"

#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <sys/wait.h>

namespace ctl {

namespace {

constexpr int64_t usual_seconds = 60;
constexpr int64_t least_seconds = 10;
constexpr int64_t most_seconds = 86400;
constexpr int64_t reload_seconds = 120; // allowed on top until the reload is over
constexpr const char *board = "/etc/board.json";

// The work is done by a child in a session of its own: the change may cut off the terminal that asked for it.
void detach()
{
    alarm(0);
    const pid_t worker = fork();
    if (worker == 0) {
        setsid();
        for (const int number : {SIGHUP, SIGINT, SIGPIPE}) {
            signal(number, SIG_IGN);
        }
        return;
    }
    int status = 0;
    if (worker > 0) {
        libsys::retry_eintr([&] { return waitpid(worker, &status, 0); });
    }
    _exit(worker > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(failed));
}

bool refuse(const char *why)
{
    complain("%s; nothing is changed", why);
    return false;
}

bool read_seconds(const words &given, int64_t *seconds)
{
    *seconds = usual_seconds;
    if (given.count == 0) {
        return true;
    }
    char *rest = nullptr;
    const char *number = given[1] != nullptr ? given[1] : "";
    *seconds = strtoll(number, &rest, 10);
    const bool good =
        strcmp(given[0], "--confirm") == 0 && given.count == 2 && *number != '\0' && *rest == '\0';
    if (!good || *seconds < least_seconds || *seconds > most_seconds) {
        complain("apply takes --confirm and a number of seconds from 10 to 86400");
        return false;
    }
    return true;
}

// Saved and not committed: the operator's, where the file is root's. Anybody may make others.
bool has_uncommitted(const char *package)
{
    char path[64];
    struct stat info;
    snprintf(path, sizeof(path), "/tmp/.uci/%s", package);
    return lstat(path, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == 0 && info.st_size > 0;
}

bool all_is_committed()
{
    for (const char *package : {"lan_intf", "wan_intf", "route_config"}) {
        if (has_uncommitted(package)) {
            complain("%s has changes that are not committed: uci commit or uci revert first", package);
            return false;
        }
    }
    return true;
}

enum class finding { go_on, nothing_to_do, refused };

finding look(json_object *facts)
{
    if (!guard_is_there()) {
        refuse("nobody would take the change back: start /etc/init.d/ivarode-guard");
        return finding::refused;
    }
    if (pending_change() == change::goes_back) {
        refuse("a change is being taken back");
        return finding::refused;
    }
    if (!all_is_committed()) {
        return finding::refused;
    }
    const checked found = check_configuration(board, config_folder, facts);
    if (!found.readable || !found.starts) {
        refuse("the daemon would not start");
        return finding::refused;
    }
    bool differs = false;
    const int error = compare_with_running(&differs);
    if (error != 0) {
        complain("the configuration that runs: %s; nothing is changed",
                 error == ENOENT ? "/etc/init.d/ivarode has kept none, restart the daemon by it"
                                 : strerror(error));
        return finding::refused;
    }
    return differs || pending_change() == change::waits ? finding::go_on : finding::nothing_to_do;
}

bool keep_way_back(int64_t until_s)
{
    const int error = pending_change() == change::waits ? set_deadline(until_s) : keep_backup(until_s);
    if (error != 0) {
        complain("no way back can be kept: %s; nothing is changed", strerror(error));
    }
    return error == 0;
}

} // namespace

int gather_apply(const words &given, json_object *facts)
{
    int64_t seconds = 0;
    if (!read_seconds(given, &seconds)) {
        return wrong_usage;
    }
    detach();
    libsys::unique_fd lock;
    if (!lock_changes(lock)) {
        return failed;
    }
    const finding found = look(facts);
    put_flag(facts, "applied", found == finding::go_on);
    if (found != finding::go_on) {
        return found == finding::refused ? failed : done;
    }
    if (!keep_way_back(seconds_since_boot() + reload_seconds + seconds)) {
        put_flag(facts, "applied", false);
        return failed;
    }
    const int status = run_daemon_script("reload");
    // From now on, as far as the disk takes it; else somewhat later.
    set_deadline(seconds_since_boot() + seconds);
    if (status != 0) {
        complain("the reload failed with status %d, see %s/apply.log; the change is taken back", status,
                 run_folder);
        put_flag(facts, "applied", false);
        take_back();
        return failed;
    }
    put_number(facts, "goes_back_in_s", seconds_left());
    return done;
}

int gather_confirm(const words & /*given*/, json_object *facts)
{
    libsys::unique_fd lock;
    if (!lock_changes(lock)) {
        return failed;
    }
    const change pending = pending_change();
    put_flag(facts, "confirmed", pending == change::waits && seconds_left() > 0);
    if (pending == change::none) {
        complain("nothing waits to be confirmed");
        return failed;
    }
    if (!get_flag(facts, "confirmed")) {
        complain("it is too late: the change is being taken back");
        return failed;
    }
    if (const int error = forget_backup(); error != 0) {
        complain("the backup stays: %s", strerror(error));
        return failed;
    }
    return done;
}

int gather_rollback(const words &given, json_object *facts)
{
    const bool at_boot = given.count == 1 && strcmp(given[0], "boot") == 0;
    if (given.count != 0 && !at_boot) {
        complain("rollback takes no word but \"boot\"");
        return wrong_usage;
    }
    detach();
    libsys::unique_fd lock;
    if (!lock_changes(lock)) {
        return failed;
    }
    const change pending = pending_change();
    put_flag(facts, "taken_back", false);
    if (pending == change::none || (at_boot && pending == change::waits && is_of_this_boot())) {
        if (!at_boot) {
            complain("nothing waits to be confirmed");
        }
        return at_boot ? done : failed;
    }
    if (at_boot) {
        // The daemon comes later in the order of the boot.
        int error = put_back();
        error = error != 0 ? error : forget_backup();
        put_flag(facts, "taken_back", error == 0);
        if (error != 0) {
            complain("the configuration cannot be put back: %s", strerror(error));
        }
        return error == 0 ? done : failed;
    }
    const bool good = take_back();
    put_flag(facts, "taken_back", good);
    return good ? done : failed;
}

} // namespace ctl
