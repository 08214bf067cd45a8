#include "core/text.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

void text_format(char *field, size_t size, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(field, size, format, args);
    va_end(args);
}

void text_copy(char (&field)[name_size], const char *text, const char *func, int line)
{
    memset(field, 0, sizeof(field));
    if (text != nullptr) {
        strncpy_safe_record(field, text, name_max, func, line);
    }
}
