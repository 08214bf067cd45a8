// String operations that survive null pointers: they do what can be done without the missing text and leave a
// record of who asked.
#include "debug.h"
#include "exports.h"

#include <algorithm>
#include <cstring>

char *strncpy_safe_record(char *dst, const char *src, unsigned n, const char *func, int line)
{
    if (dst == nullptr || src == nullptr) {
        libsys::record_null("strncpy", func, line);
        if (dst != nullptr && n > 0) {
            memset(dst, 0, n);
        }
        return dst;
    }
    size_t length = strnlen(src, n);
    memcpy(dst, src, length);
    memset(dst + length, 0, n - length);
    return dst;
}

// A null text sorts before every other and equals only another null one.
int strncmp_safe_record(const char *a, const char *b, unsigned n, const char *func, int line)
{
    if (a == nullptr || b == nullptr) {
        libsys::record_null("strncmp", func, line);
        return (a != nullptr ? 1 : 0) - (b != nullptr ? 1 : 0);
    }
    return strncmp(a, b, n);
}

void *memcpy_safe_record(void *dst, unsigned dstsize, const void *src, unsigned n, const char *func, int line)
{
    if (dst == nullptr || src == nullptr) {
        libsys::record_null("memcpy", func, line);
        return dst;
    }
    return memcpy(dst, src, std::min(n, dstsize));
}
