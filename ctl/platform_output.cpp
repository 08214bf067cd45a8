// What the platform library reports, in this program's words. Its debug lines are for the daemon's log: facts
// say what could not be read.

#include "libsys/internal.h"
#include "platform/output.h"
#include "report.h"

#include <cstdarg>
#include <cstring>

namespace {

void (*taker)(const char *line) = nullptr;

void relay(const char *format, va_list args)
{
    char line[400];
    vsnprintf(line, sizeof(line), format, args);
    line[strcspn(line, "\r\n")] = '\0';
    if (taker != nullptr) {
        taker(line);
    } else {
        ctl::complain("%s", line);
    }
}

} // namespace

ctl::reports_to::reports_to(void (*take)(const char *line))
{
    taker = take;
}

ctl::reports_to::~reports_to()
{
    taker = nullptr;
}

// In front of those of the library, which calls them by name.
#pragma GCC visibility push(default)
int outlib_error(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    relay(fmt, args);
    va_end(args);
    return 0;
}

int outlib_debug(const char * /*fmt*/, ...)
{
    return 0;
}
#pragma GCC visibility pop

// Of what only the library knows: a line, too.
void libsys::log_line(int /*priority*/, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    relay(format, args);
    va_end(args);
}

int libsys::fail(int error, const char * /*operation*/, const char * /*arguments*/, ...)
{
    errno = error == 0 ? EIO : error;
    return -1;
}
