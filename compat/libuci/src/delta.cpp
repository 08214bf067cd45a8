// Changes that were saved and not yet committed: one for each line,
// "[kind]package.section[.option][='value']".
#include "internal.h"
#include "lexer.h"

#include <cstdlib>
#include <cstring>

namespace uci {

namespace {

struct change {
    char kind; // 0: set
    char *package;
    char *section;
    char *option; // null: the section itself
    char *value;  // null: none given
};

// Takes a line's word apart where it lies.
bool split(char *word, change &made)
{
    made = {};
    if (*word && strchr("+-@^|~", *word)) {
        made.kind = *word++;
    }
    if (char *equals = strchr(word, '=')) {
        *equals = '\0';
        made.value = equals + 1;
    }
    made.package = word;
    made.section = strchr(word, '.');
    if (!made.section) {
        return false;
    }
    *made.section++ = '\0';
    made.option = strchr(made.section, '.');
    if (made.option) {
        *made.option++ = '\0';
    }
    return valid_name(made.section) && (!made.option || valid_name(made.option));
}

bool set_section(uci_package *package, uci_section *section, const change &wanted)
{
    if (!wanted.value || !valid_type(wanted.value)) {
        return true;
    }
    if (section) {
        section->type = wanted.value;
        return true;
    }
    return new_section(package, wanted.value, wanted.section) != nullptr;
}

bool add_anonymous(uci_package *package, uci_section *section, const change &wanted)
{
    if (section || !wanted.value || !valid_type(wanted.value)) {
        return true;
    }
    uci_section *made = new_section(package, wanted.value, wanted.section);
    if (made) {
        made->anonymous = true;
    }
    return made != nullptr;
}

bool set_option(uci_section *section, const change &wanted)
{
    if (!wanted.value || !*wanted.value) {
        if (uci_option *known = find_option(section, wanted.option)) {
            list_remove(&known->e.list);
        }
        return true;
    }
    return set_string(section, wanted.option, wanted.value);
}

void remove(uci_section *section, const change &wanted)
{
    if (!wanted.option) {
        list_remove(&section->e.list);
    } else if (uci_option *option = find_option(section, wanted.option)) {
        list_remove(&option->e.list);
    }
}

// A name that is taken stays its owner's: two sections of one name would become one when the file is read
// again.
void rename(uci_section *section, const change &wanted)
{
    if (!valid_name(wanted.value)) {
        return;
    }
    if (wanted.option) {
        uci_option *option = find_option(section, wanted.option);
        const bool taken = find_option(section, wanted.value) != nullptr;
        if (option && !taken) {
            option->e.name = wanted.value;
        }
        return;
    }
    const uci_section *owner = find_section(section->package, wanted.value);
    if (!owner || owner == section) {
        section->e.name = wanted.value;
        section->anonymous = false;
    }
}

void reorder(uci_package *package, uci_section *section, const change &wanted)
{
    char *rest = nullptr;
    long place = wanted.value ? strtol(wanted.value, &rest, 10) : -1;
    if (place < 0 || rest == wanted.value || *rest) {
        return;
    }
    list_remove(&section->e.list);
    uci_list *before = package->sections.next;
    for (; place > 0 && before != &package->sections; place--) {
        before = before->next;
    }
    list_insert_before(before, &section->e.list);
}

void remove_from_list(uci_section *section, const change &wanted)
{
    uci_option *option = find_option(section, wanted.option);
    if (!option || option->type != UCI_TYPE_LIST) {
        return;
    }
    uci_element *item;
    uci_element *following;
    uci_foreach_element_safe(&option->v.list, following, item)
    {
        if (is_named(item, wanted.value)) {
            list_remove(&item->list);
        }
    }
    if (uci_list_empty(&option->v.list)) {
        list_remove(&option->e.list);
    }
}

// False only when memory is short: a change that does not fit the package is passed over.
bool apply(uci_package *package, const change &wanted)
{
    uci_section *section = find_section(package, wanted.section);
    if (!wanted.option && wanted.kind == 0) {
        return set_section(package, section, wanted);
    }
    if (!wanted.option && wanted.kind == '+') {
        return add_anonymous(package, section, wanted);
    }
    if (!section) {
        return true;
    }
    switch (wanted.kind) {
    case 0:
        return set_option(section, wanted);
    case '-':
        remove(section, wanted);
        return true;
    case '@':
        rename(section, wanted);
        return true;
    case '^':
        if (!wanted.option) {
            reorder(package, section, wanted);
        }
        return true;
    case '|':
        return !wanted.option || !wanted.value || add_to_list(section, wanted.option, wanted.value);
    case '~':
        if (wanted.option && wanted.value) {
            remove_from_list(section, wanted);
        }
        return true;
    default:
        return true;
    }
}

} // namespace

int apply_delta(uci_package *package, char *text, size_t length)
{
    lexer source(text, length);
    while (source.next_line()) {
        char *word = source.next_word();
        const char *extra = word ? source.next_word() : nullptr;
        change wanted;
        if (extra && !*extra && split(word, wanted) && strcmp(wanted.package, package->e.name) == 0 &&
            !apply(package, wanted)) {
            return UCI_ERR_MEM;
        }
    }
    return UCI_OK;
}

} // namespace uci
