// What is kept in files: rows of the WANs, resolvers, accounts of PPP users without their passwords.

#include "facts/router.h"
#include "libsys/command.h"
#include "libsys/file.h"

#include <cstring>
#include <dirent.h>

namespace ctl {

namespace {

constexpr const char *row_folder = "/var/run/ivarode/wan";
constexpr const char *accounts_path = "/etc/ppp/chap-secrets";
constexpr const char *resolver_paths[] = {"/tmp/resolv.conf.d/resolv.conf.auto", "/etc/resolv.conf"};
constexpr const char *name_server = "nameserver ";
constexpr size_t longest_row = 4096;
constexpr size_t longest_file = 1 << 20;

template <typename Visit> int each_line(const char *path, size_t limit, Visit visit)
{
    libsys::text content;
    if (const int error = libsys::read_file(path, content, limit)) {
        return error;
    }
    char *rest = nullptr;
    for (char *line = strtok_r(content.get(), "\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\n", &rest)) {
        visit(line);
    }
    return 0;
}

void put_row(const char *path, json_object *made)
{
    each_line(path, longest_row, [&](char *line) {
        if (char *value = strchr(line, '=')) {
            *value = '\0';
            put(made, line, value + 1);
        }
    });
}

void add_resolvers(json_object *facts)
{
    json_object *servers = put_list(facts, "resolvers");
    for (const char *path : resolver_paths) {
        const int error = each_line(path, longest_file, [&](const char *line) {
            if (begins(line, name_server)) {
                append(servers, line + strlen(name_server));
            }
        });
        if (error == 0) {
            put(facts, "resolver_file", path);
            break;
        }
    }
}

} // namespace

void add_rows(json_object *facts)
{
    json_object *rows = put_list(facts, "rows");
    const libsys::owned<DIR, closedir> folder(opendir(row_folder));
    while (const dirent *entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        char path[PATH_MAX];
        snprintf(path, sizeof(path), "%s/%s", row_folder, entry->d_name);
        if (entry->d_name[0] != '.') {
            put_row(path, append_table(rows));
        }
    }
    add_resolvers(facts);
}

void add_accounts(json_object *facts)
{
    json_object *users = put_list(facts, "ppp_users");
    const int error = each_line(accounts_path, longest_file, [&](const char *line) {
        libsys::argument_list words;
        if (line[strspn(line, " \t")] == '#') {
            return;
        }
        if (words.add_words(line) != 0) {
            note_unread(facts, "%s: a quote is not closed", accounts_path);
        } else if (words.count() >= 3) {
            json_object *made = append_table(users);
            put(made, "name", words[0]);
            put(made, "provider", words[1]);
            put(made, "address", words.count() > 3 ? words[3] : "");
        }
    });
    if (error != 0 && error != ENOENT) {
        note_unread(facts, "%s: %s", accounts_path, strerror(error));
        json_object_object_del(facts, "ppp_users");
    }
}

} // namespace ctl
