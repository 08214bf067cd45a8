// The platform library's output channel for fuzzing: every text is formatted, none is written.
#include "exports.h"
#include "internal.h"

#include <cstdarg>

namespace {

void swallow(const char *fmt, va_list args)
{
    char text[2048];
    vsnprintf(text, sizeof text, fmt, args);
}

} // namespace

// NOLINTBEGIN(cppcoreguidelines-macro-usage): a variadic function cannot hand its arguments on
#define SWALLOW(fmt)                                                                                         \
    do {                                                                                                     \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        swallow(fmt, args);                                                                                  \
        va_end(args);                                                                                        \
    } while (false)
// NOLINTEND(cppcoreguidelines-macro-usage)

int libsys::fail(int error, const char *, const char *arguments, ...)
{
    SWALLOW(arguments);
    errno = error != 0 ? error : EIO;
    return -1;
}

void libsys::log_line(int, const char *format, ...)
{
    SWALLOW(format);
}

int outlib_error(const char *fmt, ...)
{
    SWALLOW(fmt);
    return 0;
}

int outlib_warning(const char *fmt, ...)
{
    SWALLOW(fmt);
    return 0;
}

int outlib_notice(const char *fmt, ...)
{
    SWALLOW(fmt);
    return 0;
}

int outlib_info(const char *fmt, ...)
{
    SWALLOW(fmt);
    return 0;
}

int outlib_debug(const char *fmt, ...)
{
    SWALLOW(fmt);
    return 0;
}
