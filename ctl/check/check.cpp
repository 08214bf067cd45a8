#include "check/check.h"

#include "check/daemon.h"
#include "check/options.h"
#include "check/start.h"
#include "gather.h"
#include "report.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

constexpr size_t longest_route_name = 31;

void check_routes(const char *path, findings &found)
{
    package routes;
    if (routes.load(path, effect::broken, "no static route is read", found) != package_state::good) {
        return;
    }
    routes.each("route", found, [&](const section &which) {
        if (strlen(which.name) > longest_route_name) {
            found.add({which.file, which.name}, effect::taken, "requests have to use the short name",
                      "the name is cut at %zu characters", longest_route_name);
        }
        check_route_options(which, found);
    });
}

void check_interfaces(const char *lan_path, const char *wan_path, const board_facts &board, findings &found)
{
    start_walk walk(board, found);
    package lans;
    if (lans.load(lan_path, effect::ends, start_ends, found) == package_state::good) {
        lans.each("interface", found, [&](const section &which) {
            if (strncmp(which.name, "lan", 3) == 0) {
                check_lan_options(which, found);
            }
            walk.lan(which);
        });
    }
    package wans;
    if (wans.load(wan_path, effect::ends, start_ends, found) == package_state::good) {
        wans.each("interface", found, [&](const section &which) {
            if (strncmp(which.name, "wan", 3) == 0) {
                check_wan_options(which, found);
            }
            walk.wan(which);
        });
    }
}

struct check_words {
    const char *board = "/etc/board.json";
    const char *config = "/etc/config";
};

bool read_words(const words &given, check_words &read)
{
    for (size_t i = 0; i < given.count; i += 2) {
        const char **value = strcmp(given[i], "--board") == 0    ? &read.board
                             : strcmp(given[i], "--config") == 0 ? &read.config
                                                                 : nullptr;
        if (value == nullptr) {
            complain("check takes --config DIR and --board FILE; \"%.80s\" is neither", given[i]);
            return false;
        }
        *value = given[i + 1];
        if (*value == nullptr) {
            complain("nothing stands behind %s", given[i]);
            return false;
        }
    }
    return true;
}

} // namespace

checked check_configuration(const char *board, const char *config, json_object *facts)
{
    // The library takes other paths for names of packages.
    const libsys::owned<char, free> folder(realpath(config, nullptr));
    if (folder == nullptr || access(folder.get(), R_OK | X_OK) != 0) {
        complain("%s: %s", config, strerror(errno));
        return {};
    }
    char paths[3][PATH_MAX + 16];
    const char *packages[] = {"lan_intf", "wan_intf", "route_config"};
    for (size_t i = 0; i < 3; ++i) {
        snprintf(paths[i], sizeof(paths[i]), "%s/%s", folder.get(), packages[i]);
    }
    findings found;
    board_facts known;
    if (!read_board(board, found, known)) {
        return {};
    }
    check_interfaces(paths[0], paths[1], known, found);
    check_routes(paths[2], found);
    const bool clean = !found.any();
    bool starts = !found.end_the_start();
    put_flag(facts, "starts", starts);
    put(facts, "problems", found.take());
    ask_planner(board, config, facts);
    json_object *daemon = get(facts, "daemon");
    const bool heard = daemon != nullptr;
    const bool content = !heard || count_of(get(daemon, "says")) == 0;
    starts = starts && (!heard || get_flag(daemon, "starts"));
    return {true, clean && content && starts, starts};
}

int gather_check(const words &given, json_object *facts)
{
    check_words read;
    if (!read_words(given, read)) {
        return wrong_usage;
    }
    const checked found = check_configuration(read.board, read.config, facts);
    return !found.readable ? static_cast<int>(wrong_usage) : found.good ? done : failed;
}

} // namespace ctl
