#include "commands.h"
#include "report.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace ctl {

namespace {

constexpr int facts_version = 1;
constexpr size_t most_words = 6;
constexpr unsigned watch_seconds = 2;

// Questions have limits of their own. This one is for what has none, as a broker that stops between greeting
// and answer.
constexpr unsigned longest_gathering_s = 60;

struct options {
    const command *what = nullptr;
    const char *given[most_words] = {};
    size_t count = 0;
    bool help = false;
    bool facts = false;
    bool watch = false;
    unsigned columns = 0;
};

void list_commands(FILE *to)
{
    fputs("Usage: ivarodectl COMMAND [OPTION] [WORD...]\n\n", to);
    for (size_t i = 0; i < command_count; ++i) {
        fprintf(to, "  %-9s %s\n", commands[i].name, commands[i].summary);
    }
    fputs("\n"
          "  --json        facts for programs, as one JSON object\n"
          "  --watch       again every two seconds\n"
          "  --columns N   as on a terminal of N columns\n"
          "  --help        this text; behind a command, more about it\n"
          "\n"
          "Exit status: 0 all is well, 1 something is wrong or cannot be read, 2 wrong usage.\n",
          to);
}

void explain_command(const command &what)
{
    printf("Usage: ivarodectl %s%s%s%s%s\n\n%s.\n", what.name, what.prints_facts ? " [--json]" : "",
           what.can_watch ? " [--watch]" : "", *what.form != '\0' ? " " : "", what.form, what.summary);
    fputs(what.details, stdout);
}

bool read_columns(const char *text, unsigned &columns)
{
    char *rest = nullptr;
    const unsigned long number = text != nullptr ? strtoul(text, &rest, 10) : 0;
    columns = static_cast<unsigned>(number);
    return number >= 40 && number <= 1000 && *rest == '\0';
}

// Options of one command stand in its form, each with the name of its value behind it.
bool is_of_command(const command *what, const char *word)
{
    const char *found = what != nullptr ? strstr(what->form, word) : nullptr;
    return found != nullptr && (found[strlen(word)] == ' ' || found[strlen(word)] == ']');
}

// False after a report.
bool read_option(const char *word, const char *next, options &read)
{
    if (strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0) {
        read.help = true;
    } else if (strcmp(word, "--json") == 0) {
        read.facts = true;
    } else if (strcmp(word, "--watch") == 0) {
        read.watch = true;
    } else if (strcmp(word, "--columns") == 0) {
        if (!read_columns(next, read.columns)) {
            complain("--columns takes a number from 40 to 1000");
            return false;
        }
    } else {
        complain("unknown option \"%.80s\"; --help lists those there are", word);
        return false;
    }
    return true;
}

bool read_options(int argc, char **argv, options &read)
{
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-' && !is_of_command(read.what, argv[i])) {
            if (!read_option(argv[i], i + 1 < argc ? argv[i + 1] : nullptr, read)) {
                return false;
            }
            i += strcmp(argv[i], "--columns") == 0 ? 1 : 0;
        } else if (read.what == nullptr) {
            read.what = find_command(argv[i]);
            if (read.what == nullptr) {
                complain("unknown command \"%.80s\"; --help lists those there are", argv[i]);
                return false;
            }
        } else if (read.count < most_words) {
            read.given[read.count++] = argv[i];
        } else {
            complain("too many words behind %s", read.what->name);
            return false;
        }
    }
    return true;
}

bool fits(const options &read)
{
    if (read.facts && !read.what->prints_facts) {
        complain("%s has no --json", read.what->name);
        return false;
    }
    if (read.watch && !read.what->can_watch) {
        complain("%s has no --watch", read.what->name);
        return false;
    }
    if (read.count > 0 && *read.what->form == '\0') {
        complain("%s takes no word; \"%.80s\" is one", read.what->name, read.given[0]);
        return false;
    }
    return true;
}

int run_once(const options &read, const screen &on)
{
    const json facts = table();
    put_number(facts.get(), "version", facts_version);
    alarm(longest_gathering_s);
    const int status = read.what->gather({read.given, read.count}, facts.get());
    alarm(0);
    if (json_object_object_length(facts.get()) == 1) {
        return status;
    }
    if (read.facts) {
        puts(json_object_to_json_string_ext(facts.get(),
                                            JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
    } else {
        read.what->draw(on, facts.get());
    }
    if (fflush(stdout) != 0) {
        complain("standard output: %s", strerror(errno));
        return failed;
    }
    return status;
}

int run(const options &read)
{
    const screen on(read.columns);
    int status = run_once(read, on);
    while (read.watch && status != wrong_usage && ferror(stdout) == 0) {
        sleep(watch_seconds);
        if (!read.facts) {
            on.clear();
        }
        status = run_once(read, on);
    }
    return status;
}

} // namespace

const command *find_command(const char *name)
{
    for (size_t i = 0; i < command_count; ++i) {
        if (strcmp(commands[i].name, name) == 0) {
            return &commands[i];
        }
    }
    return nullptr;
}

int dispatch(int argc, char **argv)
{
    if (argc > 1 && strcmp(argv[1], "__complete") == 0) {
        complete({argv + 2, static_cast<size_t>(argc - 2)});
        return done;
    }
    options read;
    if (!read_options(argc, argv, read)) {
        return wrong_usage;
    }
    if (read.help && read.what != nullptr) {
        explain_command(*read.what);
        return done;
    }
    if (read.help || read.what == nullptr) {
        list_commands(read.help ? stdout : stderr);
        return read.help ? done : wrong_usage;
    }
    return fits(read) ? run(read) : static_cast<int>(wrong_usage);
}

} // namespace ctl
