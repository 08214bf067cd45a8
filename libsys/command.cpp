#include "command.h"

#include "internal.h"
#include "launch.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>

namespace libsys {

namespace {

bool is_separator(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Takes one word from *line into `word`, which has room for all of the line. False when a quote is left open.
bool take_word(const char **line, char *word)
{
    const char *from = *line;
    char quote = '\0';
    for (; *from && (quote || !is_separator(*from)); ++from) {
        if (quote ? *from == quote : (*from == '\'' || *from == '"')) {
            quote = quote ? '\0' : *from;
        } else {
            if (quote == '"' && *from == '\\' && (from[1] == '"' || from[1] == '\\')) {
                ++from;
            }
            *word++ = *from;
        }
    }
    *word = '\0';
    *line = from;
    return quote == '\0';
}

// A parent that ignored SIGCHLD leaves that to its children, and the kernel then throws exit statuses away.
class kept_exit_status {
public:
    kept_exit_status()
    {
        sigaction(SIGCHLD, nullptr, &before_);
        changed_ = before_.sa_handler == SIG_IGN || ((before_.sa_flags & SA_NOCLDWAIT) != 0);
        if (changed_) {
            struct sigaction ordinary = {};
            ordinary.sa_handler = SIG_DFL;
            sigaction(SIGCHLD, &ordinary, nullptr);
        }
    }
    kept_exit_status(const kept_exit_status &) = delete;
    kept_exit_status &operator=(const kept_exit_status &) = delete;
    ~kept_exit_status()
    {
        if (changed_) {
            sigaction(SIGCHLD, &before_, nullptr);
        }
    }

private:
    struct sigaction before_ = {};
    bool changed_ = false;
};

// Reads to the end even when memory is short, so that the program does not wait for a reader.
int read_all(int fd, pid_t process, const char *program, text *into)
{
    char block[4096];
    for (size_t total = 0; says_more(fd, process, program);) {
        ssize_t got = retry_eintr([&] { return read(fd, block, sizeof(block)); });
        if (got <= 0) {
            return got < 0 ? errno : into->ok() ? 0 : ENOMEM;
        }
        total += static_cast<size_t>(got);
        if (total > longest_output) {
            kill(process, SIGKILL);
            return EFBIG;
        }
        into->append({block, static_cast<size_t>(got)});
    }
    return ETIMEDOUT;
}

} // namespace

int argument_list::insert(size_t place, const char *word)
{
    if (count_ + 2 > capacity_) {
        size_t capacity = capacity_ * 2 + 16;
        auto **words = static_cast<char **>(realloc(words_, capacity * sizeof(*words_)));
        if (words == nullptr) {
            return ENOMEM;
        }
        words_ = words;
        capacity_ = capacity;
    }
    char *copy = strdup(word);
    if (copy == nullptr) {
        return ENOMEM;
    }
    memmove(words_ + place + 1, words_ + place, (count_ - place) * sizeof(*words_));
    words_[place] = copy;
    words_[++count_] = nullptr;
    return 0;
}

int argument_list::add_words(const char *line)
{
    auto *word = static_cast<char *>(malloc(strlen(line) + 1));
    int error = word != nullptr ? 0 : ENOMEM;
    while (!error) {
        while (is_separator(*line)) {
            ++line;
        }
        if (!*line) {
            break;
        }
        error = take_word(&line, word) ? add(word) : EINVAL;
    }
    free(word);
    return error;
}

void argument_list::remove(size_t place)
{
    free(words_[place]);
    memmove(words_ + place, words_ + place + 1, (count_ - place) * sizeof(*words_));
    --count_;
}

void argument_list::clear()
{
    while (count_ > 0) {
        free(words_[--count_]);
    }
    free(words_);
    words_ = nullptr;
    capacity_ = 0;
}

char *const *argument_list::argv() const
{
    static char *const none[] = {nullptr};
    return words_ != nullptr ? words_ : none;
}

int run(const argument_list &arguments, capture what, text *into, int *status)
{
    if (arguments.count() == 0) {
        return EINVAL;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return errno;
    }
    unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    kept_exit_status kept;
    pid_t pid = 0;
    char path[PATH_MAX];
    int error = find_program(arguments[0], path);
    if (!error) {
        error = spawn(&pid, path, arguments.argv(),
                      {.output = writer.get(),
                       .errors = what == capture::everything ? writer.get() : standard_files::ours});
    }
    if (error) {
        return error;
    }
    writer.reset();
    error = read_all(reader.get(), pid, arguments[0], into);
    reader.reset();
    int raw = 0;
    if (retry_eintr([&] { return waitpid(pid, &raw, 0); }) < 0) {
        return errno;
    }
    *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return error;
}

} // namespace libsys
