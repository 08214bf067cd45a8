#include "report.h"

#include <cstdarg>
#include <cstdio>

void ctl::complain(const char *format, ...)
{
    // A name of a thousand characters is cut: one line, whatever the words of the command.
    char line[400];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    for (char &c : line) {
        if (c != '\0' && (c < ' ' || c > '~')) {
            c = '?';
        }
    }
    fprintf(stderr, "ivarodectl: %s\n", line);
}
