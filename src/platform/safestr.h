// Checked string operations: strncpy, strncmp and memcpy that record null pointers under the function name
// and line number that the caller gives.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Copies at most n bytes as strncpy does: no terminator when src is n bytes or longer.
char *strncpy_safe_record(char *dst, const char *src, unsigned n, const char *func, int line);
// Compares at most n bytes as strncmp does.
int strncmp_safe_record(const char *a, const char *b, unsigned n, const char *func, int line);
// Copies n bytes, but never more than dstsize.
void *memcpy_safe_record(void *dst, unsigned dstsize, const void *src, unsigned n, const char *func,
                         int line);

#ifdef __cplusplus
}
#endif
