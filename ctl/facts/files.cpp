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

json row_in(const char *path)
{
    json made = table();
    each_line(path, longest_row, [&](char *line) {
        if (char *value = strchr(line, '=')) {
            *value = '\0';
            put(made.get(), line, value + 1);
        }
    });
    return made;
}

void add_resolvers(json_object *facts)
{
    json servers = list();
    for (const char *path : resolver_paths) {
        const int error = each_line(path, longest_file, [&](const char *line) {
            constexpr std::string_view word = "nameserver ";
            if (std::string_view(line).starts_with(word)) {
                json_object_array_add(servers.get(), text(line + word.size()));
            }
        });
        if (error == 0) {
            put(facts, "resolver_file", path);
            break;
        }
    }
    put(facts, "resolvers", std::move(servers));
}

} // namespace

void add_rows(json_object *facts)
{
    json rows = list();
    const libsys::owned<DIR, closedir> folder(opendir(row_folder));
    while (const dirent *entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        char path[PATH_MAX];
        snprintf(path, sizeof(path), "%s/%s", row_folder, entry->d_name);
        if (entry->d_name[0] != '.') {
            append(rows.get(), row_in(path));
        }
    }
    put(facts, "rows", std::move(rows));
    add_resolvers(facts);
}

void add_accounts(json_object *facts)
{
    json users = list();
    const int error = each_line(accounts_path, longest_file, [&](const char *line) {
        libsys::argument_list words;
        if (line[strspn(line, " \t")] == '#') {
            return;
        }
        if (words.add_words(line) != 0) {
            note_unread(facts, "%s: a quote is not closed", accounts_path);
        } else if (words.count() >= 3) {
            json made = table();
            put(made.get(), "name", words[0]);
            put(made.get(), "provider", words[1]);
            put(made.get(), "address", words.count() > 3 ? words[3] : "");
            append(users.get(), std::move(made));
        }
    });
    if (error != 0 && error != ENOENT) {
        note_unread(facts, "%s: %s", accounts_path, strerror(error));
        return;
    }
    put(facts, "ppp_users", std::move(users));
}

} // namespace ctl
