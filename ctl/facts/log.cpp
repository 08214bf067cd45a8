// What the clients said last, out of the system log: by the daemon logread, or in a file.

#include "facts/router.h"
#include "libsys/command.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>

namespace ctl {

namespace {

constexpr const char *log_path = "/var/log/messages";
constexpr off_t part_read = 0x40000;

constexpr const char *at_provider = "look at modem and provider, and at option server";
constexpr const char *refused = "the provider refuses user or password";
constexpr const char *correct = "correct username and password, then config";
constexpr const char *dials_again = "nothing: the client dials again";

// A line counts unless the one before it keeps more than it beats, or as much and stands right in front of
// it: the end of a link tells less than the refusal that led to it, and so does the silence behind a peer
// that has gone silent.
constexpr meaning meanings[] = {
    {" has no lease", 5, 0, "no DHCP server answers: none is there, or it has no address left",
     "look at cable, modem and server"},
    {"started by ", 0, 0, "no PPPoE concentrator has answered, as far as the log says", at_provider},
    {": bound", 9, 0, "it has had one that is gone",
     "ubus call ivarode.intf enable for it asks for a lease again"},
    {"local  IP address", 9, 0, "it has had one that is gone", dials_again},
    {" is refused: ", 9, 5, "what the DHCP server offers cannot be used",
     "give the LAN another network, or look at the server"},
    {": nak ", 9, 5, "the last that a DHCP server said was a refusal", "look at the server, why it refuses"},
    {"uthentication failed", 9, 5, refused, correct},
    {"ailed to authenticate", 9, 5, refused, correct},
    {"echo-requests", 9, 6, "the peer has gone without a word, and nobody answers since", dials_again},
    {"LCP: timeout", 9, 5, "the concentrator answers, but nobody behind it", at_provider},
    {"Timeout waiting for PADO", 5, 2, "no PPPoE concentrator answers", at_provider},
    {"PPP session is ", 3, 0, "the concentrator has answered, and the link is being made", dials_again},
    {"Connection terminated", 1, 1, "the peer has ended the link", dials_again},
};

void read_log(libsys::text &into)
{
    libsys::argument_list command;
    int status = 0;
    command.add("logread");
    if (libsys::run(command, libsys::capture::everything, &into, &status) == 0 && status == 0) {
        return;
    }
    into.clear();
    const libsys::unique_fd fd(open(log_path, O_RDONLY | O_CLOEXEC));
    const off_t size = !fd ? 0 : lseek(fd.get(), 0, SEEK_END);
    const auto part = static_cast<size_t>(size < part_read ? size : part_read);
    char *room = into.reserve(part);
    if (room != nullptr && size > 0) {
        const ssize_t got = pread(fd.get(), room, part, size - static_cast<off_t>(part));
        into.grew(got > 0 ? static_cast<size_t>(got) : 0);
    }
}

// What a client is known by in the log: its process, or the name of its interface behind the scripts' own.
bool is_said_by(const char *line, json_object *client)
{
    char mark[64];
    const int length = is(client, "service", "pppoe")
                           ? snprintf(mark, sizeof(mark), "pppd[%s]:", shown(client, "pid"))
                           : snprintf(mark, sizeof(mark), "ivarode-wan: %.32s", shown(client, "name"));
    const char *found = strstr(line, mark);
    return found != nullptr && strchr(": ", found[length]) != nullptr;
}

} // namespace

const meaning *meaning_of(const char *line)
{
    for (const meaning &each : meanings) {
        if (strstr(line, each.words) != nullptr) {
            return &each;
        }
    }
    return nullptr;
}

void add_last_words(json_object *facts)
{
    json_object *clients = get(facts, "clients");
    if (clients == nullptr || count_of(clients) == 0) {
        return;
    }
    libsys::text log;
    read_log(log);
    char *rest = nullptr;
    for (char *line = strtok_r(log.get(), "\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\n", &rest)) {
        for (json_object *client : items(clients)) {
            if (!is_said_by(line, client)) {
                continue;
            }
            const char *words = strstr(line, ": ") + strlen(": ");
            const meaning *of = meaning_of(words);
            const meaning *kept = meaning_of(shown(client, "reason", ""));
            const bool behind = is_same(client, "last_words", client, "reason");
            if (of != nullptr && (kept == nullptr || of->beats >= kept->keeps + behind)) {
                put(client, "reason", words);
            }
            put(client, "last_words", words);
            put(client, "last_line", line);
        }
    }
}

} // namespace ctl
