#include "internal.h"

#include <cstdlib>
#include <cstring>

namespace uci {

namespace {

template <typename Struct> Struct *new_element(uci_type type, const char *name)
{
    auto *made = static_cast<Struct *>(calloc(1, sizeof(Struct)));
    if (!made) {
        return nullptr;
    }
    made->e.type = type;
    made->e.name = strdup(name);
    if (!made->e.name) {
        free(made);
        return nullptr;
    }
    list_init(&made->e.list);
    return made;
}

uci_option *new_option(uci_section *section, const char *name, uci_option_type type)
{
    auto *option = new_element<uci_option>(UCI_TYPE_OPTION, name);
    if (option) {
        option->section = section;
        option->type = type;
        if (type == UCI_TYPE_LIST) {
            list_init(&option->v.list);
        }
        list_insert_before(&section->options, &option->e.list);
    }
    return option;
}

void free_items(uci_list *list)
{
    uci_element *item;
    uci_element *following;
    uci_foreach_element_safe(list, following, item)
    {
        free_item(item);
    }
}

unsigned type_hash(const char *type)
{
    uint32_t hash = 5381;
    for (; *type; type++) {
        hash = hash * 33 + static_cast<unsigned char>(*type);
    }
    return hash & 0x7fffffff;
}

template <typename Accept> bool all_characters(const char *text, Accept accept)
{
    if (!text || !*text) {
        return false;
    }
    for (; *text; text++) {
        if (!accept(static_cast<unsigned char>(*text))) {
            return false;
        }
    }
    return true;
}

// Independent of the locale, which the program around us may have set.
bool is_name_character(unsigned char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

} // namespace

bool valid_package_name(const char *text)
{
    return all_characters(text, [](unsigned char c) { return is_name_character(c) || c == '-'; });
}

bool valid_name(const char *text)
{
    return all_characters(text, is_name_character);
}

bool valid_type(const char *text)
{
    return all_characters(text, [](unsigned char c) { return c >= 33 && c <= 126; });
}

void list_init(uci_list *list)
{
    list->next = list;
    list->prev = list;
}

void list_insert_before(uci_list *position, uci_list *entry)
{
    entry->prev = position->prev;
    entry->next = position;
    position->prev->next = entry;
    position->prev = entry;
}

void list_remove(uci_list *entry)
{
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
    list_init(entry);
}

bool replace_text(char **slot, const char *text)
{
    char *copy = strdup(text);
    if (!copy) {
        return false;
    }
    free(*slot);
    *slot = copy;
    return true;
}

uci_element *new_item(uci_list *list, const char *value)
{
    struct item {
        uci_element e;
    };
    auto *made = new_element<item>(UCI_TYPE_ITEM, value);
    if (!made) {
        return nullptr;
    }
    list_insert_before(list, &made->e.list);
    return &made->e;
}

void free_item(uci_element *item)
{
    list_remove(&item->list);
    free(item->name);
    free(item);
}

uci_section *new_section(uci_package *package, const char *type, const char *name)
{
    char generated[32];
    bool anonymous = !name;
    if (anonymous) {
        snprintf(generated, sizeof generated, "cfg%02x%04x", static_cast<unsigned>(package->n_section + 1),
                 type_hash(type) & 0xffff);
        name = generated;
    }
    auto *section = new_element<uci_section>(UCI_TYPE_SECTION, name);
    if (!section) {
        return nullptr;
    }
    section->type = strdup(type);
    if (!section->type) {
        free(section->e.name);
        free(section);
        return nullptr;
    }
    section->package = package;
    section->anonymous = anonymous;
    list_init(&section->options);
    list_insert_before(&package->sections, &section->e.list);
    package->n_section++;
    return section;
}

void free_section(uci_section *section)
{
    uci_element *element;
    uci_element *following;
    uci_foreach_element_safe(&section->options, following, element)
    {
        free_option(uci_to_option(element));
    }
    list_remove(&section->e.list);
    free(section->type);
    free(section->e.name);
    free(section);
}

uci_section *find_section(const uci_package *package, const char *name)
{
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        if (strcmp(element->name, name) == 0) {
            return uci_to_section(element);
        }
    }
    return nullptr;
}

uci_option *find_option(const uci_section *section, const char *name)
{
    uci_element *element;
    uci_foreach_element(&section->options, element)
    {
        if (strcmp(element->name, name) == 0) {
            return uci_to_option(element);
        }
    }
    return nullptr;
}

void free_option(uci_option *option)
{
    if (option->type == UCI_TYPE_LIST) {
        free_items(&option->v.list);
    } else {
        free(option->v.string);
    }
    list_remove(&option->e.list);
    free(option->e.name);
    free(option);
}

bool set_string(uci_section *section, const char *name, const char *value)
{
    char *copy = strdup(value);
    if (!copy) {
        return false;
    }
    uci_option *option = find_option(section, name);
    if (!option) {
        option = new_option(section, name, UCI_TYPE_STRING);
        if (!option) {
            free(copy);
            return false;
        }
    } else if (option->type == UCI_TYPE_LIST) {
        free_items(&option->v.list);
        option->type = UCI_TYPE_STRING;
    } else {
        free(option->v.string);
    }
    option->v.string = copy;
    return true;
}

bool add_to_list(uci_section *section, const char *name, const char *value)
{
    uci_option *option = find_option(section, name);
    if (!option) {
        option = new_option(section, name, UCI_TYPE_LIST);
        if (!option) {
            return false;
        }
        if (!new_item(&option->v.list, value)) {
            free_option(option);
            return false;
        }
        return true;
    }
    if (option->type == UCI_TYPE_STRING) {
        char *first = option->v.string;
        uci_list only;
        list_init(&only);
        if (!new_item(&only, first)) {
            return false;
        }
        uci_list *item = only.next;
        list_remove(item);
        option->type = UCI_TYPE_LIST;
        list_init(&option->v.list);
        list_insert_before(&option->v.list, item);
        free(first);
    }
    return new_item(&option->v.list, value) != nullptr;
}

uci_package *new_package(uci_context *ctx, const char *name, const char *path)
{
    auto *package = new_element<uci_package>(UCI_TYPE_PACKAGE, name);
    if (!package) {
        return nullptr;
    }
    package->ctx = ctx;
    list_init(&package->sections);
    list_init(&package->delta);
    list_init(&package->saved_delta);
    if (!replace_text(&package->path, path)) {
        free_package(package);
        return nullptr;
    }
    return package;
}

void free_package(uci_package *package)
{
    uci_element *element;
    uci_element *following;
    uci_foreach_element_safe(&package->sections, following, element)
    {
        free_section(uci_to_section(element));
    }
    list_remove(&package->e.list);
    free(package->path);
    free(package->e.name);
    free(package);
}

} // namespace uci
