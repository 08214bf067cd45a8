// Reading UCI packages section by section.
#pragma once

struct uci_context;
struct uci_section;

#ifdef __cplusplus
extern "C" {
#endif

// Called for each section; a non-zero result stops the walk.
typedef int (*ucilib_section_cb)(struct uci_context *ctx, struct uci_section *s, void *arg);

// Walks the sections of one type of a package in file order. 0, or non-zero when the package cannot be
// loaded or a callback returned non-zero.
int ucilib_foreach_section(const char *package, const char *type, ucilib_section_cb cb, void *arg);
// The text of an option, or def where the section lacks it. The text lives as long as the walk.
const char *ucilib_lookup_option_string(struct uci_context *ctx, struct uci_section *s, const char *option,
                                        const char *def);

#ifdef __cplusplus
}
#endif
