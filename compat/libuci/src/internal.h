/*
 * What the files of this library share: the error kept in a context, the element tree and the checks of
 * names.
 *
 * Elements are allocated singly with malloc. A function that creates one gives null when memory is short and
 * leaves the tree as it was.
 */
#pragma once

#include <uci.h>

struct uci_parse_context {
    const char *reason; // null: the last error was not one of syntax
    int line;           // from 1
    int byte;           // from 1, within the line
};

namespace [[gnu::visibility("hidden")]] uci {

inline int set_error(uci_context *ctx, int code)
{
    ctx->err = code;
    return code;
}

// Characters of package names, of section and option names, and of section types. Empty texts are none of
// them.
bool valid_package_name(const char *text);
bool valid_name(const char *text);
bool valid_type(const char *text);

void list_init(uci_list *list);
void list_insert_before(uci_list *position, uci_list *entry);
void list_remove(uci_list *entry);

uci_element *new_item(uci_list *list, const char *value);
void free_item(uci_element *item);

// A null name gives the section a generated one and makes it anonymous.
uci_section *new_section(uci_package *package, const char *type, const char *name);
void free_section(uci_section *section);
uci_section *find_section(const uci_package *package, const char *name);

// An option is created as an empty list or as a string, at the end of its section.
uci_option *find_option(const uci_section *section, const char *name);
void free_option(uci_option *option);
// Makes the option that string, keeping its place if it is there already.
bool set_string(uci_section *section, const char *name, const char *value);
// Appends to the option's list; a string becomes the list's first item.
bool add_to_list(uci_section *section, const char *name, const char *value);

uci_package *new_package(uci_context *ctx, const char *name, const char *path);
void free_package(uci_package *package);

// Replaces *slot by a copy of text; false (and *slot untouched) when memory is short.
bool replace_text(char **slot, const char *text);

// Reads the text of a package file into an empty package. The text is changed on the way. UCI_OK or a code.
int parse_package(uci_context *ctx, uci_package *package, char *text, size_t length);
// Applies one file of changes; lines that make no sense are skipped. UCI_OK or UCI_ERR_MEM.
int apply_delta(uci_package *package, char *text, size_t length);

} // namespace gnu::visibility("hidden")]]uci
