// What the platform library's readers of board file and configuration report, on this program's standard
// error. Their debug lines are for the daemon's.

#include "../../libsys/internal.h"
#include "plan/options.h"
#include "platform/output.h"
#include "text.h"

#include <cstdarg>

using namespace seam;

int outlib_error(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const std::string text = formatted(fmt, args);
    va_end(args);
    plan::complain(text.substr(0, text.find_last_not_of('\n') + 1));
    return 0;
}

// Of what only the library knows: warnings are worth a line here, too.
void libsys::log_line(int /*priority*/, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    plan::complain(formatted(format, args));
    va_end(args);
}

int outlib_debug(const char * /*fmt*/, ...)
{
    return 0;
}

int libsys::fail(int error, const char * /*operation*/, const char * /*arguments*/, ...)
{
    errno = error == 0 ? EIO : error;
    return -1;
}
