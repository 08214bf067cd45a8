// Fixed text fields. Names and addresses live in buffers of 32 bytes; longer texts are cut, never refused.
//
// The platform's checked operations record who called them: func and line, when left out, are those of the
// call.
#pragma once

#include "platform/safestr.h"

#include <stddef.h>

constexpr unsigned name_size = 32;
constexpr unsigned name_max = name_size - 1;

// Formats into a field, cutting what does not fit; the field is always terminated.
void text_format(char *field, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

// Clears a field of name_size bytes and copies at most name_max characters of a text into it. A null text
// leaves the field empty.
void text_copy(char (&field)[name_size], const char *text, const char *func = __builtin_FUNCTION(),
               int line = __builtin_LINE());

// True when the text begins with the prefix.
template <size_t N>
bool text_begins(const char *text, const char (&prefix)[N], const char *func = __builtin_FUNCTION(),
                 int line = __builtin_LINE())
{
    return strncmp_safe_record(text, prefix, N - 1, func, line) == 0;
}

// True when the two texts are the same, terminator included.
template <size_t N>
bool text_equals(const char *text, const char (&other)[N], const char *func = __builtin_FUNCTION(),
                 int line = __builtin_LINE())
{
    return strncmp_safe_record(text, other, N, func, line) == 0;
}

// True when two names are the same over name_size characters.
inline bool name_equals(const char *name, const char *other, const char *func = __builtin_FUNCTION(),
                        int line = __builtin_LINE())
{
    return strncmp_safe_record(name, other, name_size, func, line) == 0;
}
