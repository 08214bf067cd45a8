#include "iptables_stream.h"

#include "file.h"
#include "launch.h"

#include <cctype>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/wait.h>

extern "C" {
#include <libubox/uloop.h>
}

namespace libsys {

namespace {

constexpr int idle_ms = 1000;
constexpr int first_answer_ms = 5000;
constexpr size_t longest_line = 512; // half of what the program takes as one word

struct {
    unique_fd channel;
    pid_t process = 0;
    unsigned comments = 0;
    bool mute = false; // the program is not asked again
} stream;

uloop_timeout idle;

constexpr const char *program = "iptables-restore";

void give_up()
{
    stream.mute = true;
    kill(stream.process, SIGKILL);
}

// The program ends with its input. How it ended, as waitpid() says it; -1 when that is not known.
int let_go()
{
    shutdown(stream.channel.get(), SHUT_WR);
    char block[256];
    while (says_more(stream.channel.get(), stream.process, program) &&
           retry_eintr([&] { return read(stream.channel.get(), block, sizeof(block)); }) > 0) {
    }
    stream.channel.reset();
    int status = 0;
    return retry_eintr([&] { return waitpid(stream.process, &status, 0); }) > 0 ? status : -1;
}

void let_idle_go(uloop_timeout *)
{
    let_go();
}

// Words that a command line and the stream read alike, whatever the version of the program. Of an option that
// asks for IPv6 ("-6") a stream skips the line, where a command fails.
bool is_plain(const char *word)
{
    const bool six = word[0] == '-' && strchr(word, '6') != nullptr;
    const char *c = word;
    while (isalnum(static_cast<unsigned char>(*c)) || (*c && strchr("_-.,:/+=!%@", *c) != nullptr)) {
        ++c;
    }
    return c != word && *c == '\0' && !six;
}

bool compose(text &into, const char *table, const argument_list &words, size_t first)
{
    bool plain = is_plain(table);
    into.append('*');
    into.append(table);
    into.append('\n');
    for (; first < words.count(); ++first) {
        plain = plain && is_plain(words[first]);
        into.append(words[first]);
        into.append(' ');
    }
    into.append("\nCOMMIT\n");
    return plain && into.ok() && into.view().size() < longest_line;
}

// Whether the file is the program of many names, so that it is the same one under another name.
bool has_many_names(const char *path)
{
    const char *slash = strrchr(path, '/');
    const std::string_view name = slash != nullptr ? slash + 1 : path;
    return name.starts_with("xtables-") && name.ends_with("multi");
}

// Reads until the comment, which is the last thing said; what is said before it goes to `said`.
bool await(std::string_view comment, text *said, int longest_ms)
{
    char block[4096];
    for (;;) {
        if (!says_more(stream.channel.get(), stream.process, program, longest_ms)) {
            give_up();
            return false;
        }
        const ssize_t length = retry_eintr([&] { return read(stream.channel.get(), block, sizeof(block)); });
        if (length <= 0) {
            return false;
        }
        said->append({block, static_cast<size_t>(length)});
        if (!said->ok()) {
            return false;
        }
        const std::string_view all = said->view();
        if (all.ends_with(comment)) {
            const size_t before = all.size() - comment.size();
            if (before == 0 || all[before - 1] == '\n') {
                said->cut(before);
                return true;
            }
        }
        if (all.size() > longest_output) {
            give_up();
            return false;
        }
    }
}

bool send_all(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent =
            retry_eintr([&] { return send(stream.channel.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); });
        if (sent < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

// Sends lines with a comment behind them, and waits for the comment.
change exchange(std::string_view lines, text *said, int longest_ms = longest_silence_ms)
{
    char comment[16];
    snprintf(comment, sizeof(comment), "#%u\n", ++stream.comments);
    text request;
    request.append(lines);
    request.append(comment);
    if (!request.ok() || !send_all(request.view())) {
        return change::refused;
    }
    return await(comment, said, longest_ms) ? change::made : change::unknown;
}

bool open_stream()
{
    char found[PATH_MAX];
    char path[PATH_MAX];
    if (stream.mute || find_program("iptables", found) != 0 || realpath(found, path) == nullptr ||
        !has_many_names(path)) {
        return false;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return false;
    }
    unique_fd ours(ends[0]);
    const unique_fd its(ends[1]);
    constexpr const char *command[] = {program, "-w", "--noflush", "--verbose"};
    argument_list arguments;
    for (const char *word : command) {
        if (arguments.add(word) != 0) {
            return false;
        }
    }
    if (spawn(&stream.process, path, arguments.argv(), {.input = its.get(), .output = its.get()}) != 0) {
        return false;
    }
    stream.channel = std::move(ours);
    return true;
}

// A program that does not repeat the first comment is not asked again.
bool is_open()
{
    if (stream.channel) {
        return true;
    }
    if (!open_stream()) {
        return false;
    }
    text said;
    if (exchange("", &said, first_answer_ms) != change::made) {
        give_up();
        let_go();
        return false;
    }
    return true;
}

// A program that refuses ends by itself, with a status that says so.
change ask(std::string_view lines, text *said)
{
    if (!is_open()) {
        return change::refused;
    }
    change answer = exchange(lines, said);
    if (answer == change::made) {
        idle.cb = let_idle_go;
        uloop_timeout_set(&idle, idle_ms);
        return answer;
    }
    uloop_timeout_cancel(&idle);
    const int status = let_go();
    return WIFEXITED(status) && WEXITSTATUS(status) != 0 ? change::refused : answer;
}

} // namespace

bool stream_takes(const char *table, const argument_list &words, size_t first)
{
    text lines;
    return compose(lines, table, words, first) && is_open();
}

change stream_change(const char *table, const argument_list &words, size_t first)
{
    text lines;
    text said;
    return compose(lines, table, words, first) ? ask(lines.view(), &said) : change::refused;
}

bool stream_list(const char *table, text *into)
{
    argument_list words;
    text question;
    return words.add("-S") == 0 && compose(question, table, words, 0) &&
           ask(question.view(), into) == change::made;
}

} // namespace libsys
