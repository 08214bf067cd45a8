/*
 * What the files of this library share: the error kept in a context, the element tree and the checks of
 * names.
 *
 * Elements live in their package's memory and go with it; what is taken out of the tree before is merely no
 * longer seen. Texts given to them are not copied: they lie in the texts that the package was read from,
 * which it keeps. A function that creates an element gives null when memory is short and leaves the tree as
 * it was.
 */
#pragma once

#include <cstring>

// What is declared there is all that the library exports.
#pragma GCC visibility push(default)
#include <uci.h>
#pragma GCC visibility pop

struct uci_parse_context {
    const char *reason; // null: the last error was not one of syntax
    int line;
    int byte;
};

namespace uci {

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

// Mostly the first letter already tells.
inline bool is_named(const uci_element *element, const char *name)
{
    return *element->name == *name && strcmp(element->name, name) == 0;
}

// The name that a section gets which has none, as the package's section number `place`, from 1.
struct section_name {
    section_name(int place, const char *type);
    char text[16];
};

// A null name gives the section a generated one and makes it anonymous.
uci_section *new_section(uci_package *package, char *type, char *name);
uci_section *find_section(const uci_package *package, const char *name);

uci_option *find_option(const uci_section *section, const char *name);
// Makes the option that string, keeping its place if it is there already.
bool set_string(uci_section *section, char *name, char *value);
// Appends to the option's list; a string becomes the list's first item.
bool add_to_list(uci_section *section, char *name, char *value);

// Copies name and path.
uci_package *new_package(uci_context *ctx, const char *name, const char *path);
// Takes a text from malloc over; false, and it stays the caller's, when memory is short.
bool keep_text(uci_package *package, char *text);
void free_package(uci_package *package);

// Reads the text of a package file, which the package keeps, into the package, which is empty. The text is
// changed on the way. UCI_OK or a code.
int parse_package(uci_context *ctx, uci_package *package, char *text, size_t length);
// Applies one file of changes, whose text the package keeps; lines that make no sense are skipped. UCI_OK or
// UCI_ERR_MEM.
int apply_delta(uci_package *package, char *text, size_t length);

} // namespace uci
