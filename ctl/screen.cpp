#include "screen.h"

#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ctl {

namespace {

constexpr unsigned usual_columns = 80;

unsigned width_of_terminal()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual_columns;
}

} // namespace

screen::screen(unsigned columns) : terminal_(columns != 0 || isatty(STDOUT_FILENO) != 0), columns_(columns)
{
    if (columns_ == 0) {
        columns_ = terminal_ ? width_of_terminal() : usual_columns;
    }
}

const char *screen::paint(style how) const
{
    static constexpr const char *sequences[] = {"\033[0m", "\033[32m", "\033[31m", "\033[1m", "\033[2m"};
    return terminal_ ? sequences[static_cast<size_t>(how)] : "";
}

void screen::paragraph(unsigned column, const char *text) const
{
    unsigned at = column;
    for (size_t word = strcspn(text, " "); *text != '\0'; word = strcspn(text, " ")) {
        const bool first = at == column;
        if (!first && at + 1 + word > columns_) {
            printf("\n%*s", static_cast<int>(column), "");
            at = column;
        } else if (!first) {
            fputc(' ', stdout);
            ++at;
        }
        printf("%.*s", static_cast<int>(word), text);
        at += static_cast<unsigned>(word);
        text += word;
        text += strspn(text, " ");
    }
    fputc('\n', stdout);
}

void screen::clear() const
{
    fputs(terminal_ ? "\033[H\033[2J" : "\n", stdout);
}

} // namespace ctl
