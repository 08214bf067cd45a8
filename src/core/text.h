// Fixed text fields. Names and addresses live in buffers of 32 bytes; longer texts are cut, never refused.
#pragma once

#include "platform/safestr.h"

#include <stddef.h>

constexpr unsigned name_size = 32;
constexpr unsigned name_max = name_size - 1;

// Formats into a field, cutting what does not fit; the field is always terminated.
void text_format(char *field, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

// Clears a field of name_size bytes and copies at most name_max characters of a text into it.
void text_copy(char (&field)[name_size], const char *text, const char *func, int line);

// True when the text begins with the prefix.
template <size_t N> bool text_begins(const char *text, const char (&prefix)[N], const char *func, int line)
{
    return strncmp_safe_record(text, prefix, N - 1, func, line) == 0;
}

// True when the two texts are the same, terminator included.
template <size_t N> bool text_equals(const char *text, const char (&other)[N], const char *func, int line)
{
    return strncmp_safe_record(text, other, N, func, line) == 0;
}
