#include "exports.h"
#include "internal.h"

#include <ctime>

int timelib_curtime_str_get(char *buf, int size)
{
    constexpr const char *operation = "timelib_curtime_str_get";
    if (buf == nullptr || size <= 0) {
        return libsys::fail(EINVAL, operation, "%d", size);
    }
    buf[0] = '\0';
    time_t now = time(nullptr);
    struct tm local;
    tzset(); // the time zone may have been set since the last call
    if (localtime_r(&now, &local) == nullptr) {
        return libsys::fail(errno, operation, "%d", size);
    }
    char text[64];
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    if (snprintf(buf, static_cast<size_t>(size), "%s", text) >= size) {
        return libsys::fail(ERANGE, operation, "%d", size);
    }
    return 0;
}
