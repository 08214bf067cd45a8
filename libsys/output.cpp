// outlib_*: one line each on standard error, "level: text". A line is written with a single write, so that
// lines of the daemon and of its children do not mix in a common log file. errno is left as it was, which
// lets callers report first and look at errno afterwards.
#include "exports.h"
#include "internal.h"
#include "start.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <syslog.h>

namespace {

constexpr size_t usual_line = 1024;

bool write_all(const char *text, size_t length)
{
    while (length > 0) {
        ssize_t sent = libsys::retry_eintr([&] { return write(STDERR_FILENO, text, length); });
        if (sent < 0) {
            return false;
        }
        text += sent;
        length -= static_cast<size_t>(sent);
    }
    return true;
}

// Puts prefix and text into line; the length the whole line needs, without its terminator.
size_t format(char *line, size_t size, const char *level, const char *fmt, va_list args)
{
    int prefix = snprintf(line, size, "%s: ", level);
    int text = vsnprintf(line + prefix, size - static_cast<size_t>(prefix), fmt, args);
    return static_cast<size_t>(prefix) + (text > 0 ? static_cast<size_t>(text) : 0);
}

int put(const char *level, const char *fmt, va_list args)
{
    int saved = errno;
    va_list again;
    va_copy(again, args);
    char usual[usual_line];
    char *line = usual;
    // Room for the newline is kept back: some texts bring one, some do not.
    size_t length = format(usual, sizeof(usual) - 1, level, fmt, args);
    if (length >= sizeof(usual) - 1) {
        line = static_cast<char *>(malloc(length + 2));
        if (line != nullptr) {
            length = format(line, length + 1, level, fmt, again);
        } else {
            line = usual;
            length = sizeof(usual) - 2;
        }
    }
    va_end(again);
    if (line[length - 1] != '\n') {
        line[length++] = '\n';
    }
    bool written = write_all(line, length);
    if (line != usual) {
        free(line);
    }
    errno = saved;
    return written ? 0 : -1;
}

} // namespace

int outlib_client_init(int, char **)
{
    libsys::begin_start();
    return 0;
}

int outlib_error(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = put("error", fmt, args);
    va_end(args);
    return result;
}

int outlib_warning(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = put("warning", fmt, args);
    va_end(args);
    return result;
}

int outlib_notice(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = put("notice", fmt, args);
    va_end(args);
    return result;
}

int outlib_info(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = put("info", fmt, args);
    va_end(args);
    return result;
}

int outlib_debug(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = put("debug", fmt, args);
    va_end(args);
    return result;
}

void libsys::log_line(int priority, const char *format, ...)
{
    char line[512];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    syslog(priority, "%s", line);
    if (priority == LOG_WARNING) {
        outlib_warning("%s\n", line);
    } else {
        outlib_notice("%s\n", line);
    }
}

int libsys::fail(int error, const char *operation, const char *arguments, ...)
{
    if (error == 0) {
        error = EIO;
    }
    char shown_arguments[512];
    va_list args;
    va_start(args, arguments);
    vsnprintf(shown_arguments, sizeof(shown_arguments), arguments, args);
    va_end(args);
    outlib_debug("%s(%s): %s\n", operation, shown_arguments, strerror(error));
    errno = error;
    return -1;
}
