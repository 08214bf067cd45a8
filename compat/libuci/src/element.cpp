#include "arena.h"
#include "characters.h"
#include "internal.h"

#include <cstdlib>
#include <cstring>

namespace uci {

namespace {

// What free_package gives back: a package and all that hangs on it.
struct whole_package {
    uci_package package;
    arena memory;
};

arena &memory_of(uci_package *package)
{
    return container_of(package, whole_package, package)->memory;
}

template <typename Struct> Struct *new_element(arena &memory, uci_type type, char *name)
{
    auto *made = static_cast<Struct *>(memory.take(sizeof(Struct)));
    if (made) {
        *made = {};
        made->e.type = type;
        made->e.name = name;
    }
    return made;
}

uci_option *new_option(uci_section *section, char *name, uci_option_type type)
{
    auto *option = new_element<uci_option>(memory_of(section->package), UCI_TYPE_OPTION, name);
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

uci_element *new_item(uci_section *section, char *value)
{
    struct item {
        uci_element e;
    };
    auto *made = new_element<item>(memory_of(section->package), UCI_TYPE_ITEM, value);
    return made ? &made->e : nullptr;
}

unsigned type_hash(const char *type)
{
    uint32_t hash = 5381;
    for (; *type; type++) {
        hash = hash * 33 + static_cast<unsigned char>(*type);
    }
    return hash & 0x7fffffff;
}

bool all_have(const char *text, uint8_t trait)
{
    if (!text || !*text) {
        return false;
    }
    while (has(*text, trait)) {
        text++;
    }
    return *text == '\0';
}

} // namespace

bool valid_package_name(const char *text)
{
    return all_have(text, in_package_name);
}

bool valid_name(const char *text)
{
    return all_have(text, in_name);
}

bool valid_type(const char *text)
{
    return all_have(text, in_type);
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

section_name::section_name(int place, const char *type)
{
    snprintf(text, sizeof text, "cfg%02x%04x", static_cast<unsigned>(place), type_hash(type) & 0xffff);
}

uci_section *new_section(uci_package *package, char *type, char *name)
{
    arena &memory = memory_of(package);
    bool anonymous = !name;
    if (anonymous) {
        name = memory.copy(section_name(package->n_section + 1, type).text);
    }
    auto *section = name ? new_element<uci_section>(memory, UCI_TYPE_SECTION, name) : nullptr;
    if (!section) {
        return nullptr;
    }
    section->type = type;
    section->package = package;
    section->anonymous = anonymous;
    list_init(&section->options);
    list_insert_before(&package->sections, &section->e.list);
    package->n_section++;
    return section;
}

uci_section *find_section(const uci_package *package, const char *name)
{
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        if (is_named(element, name)) {
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
        if (is_named(element, name)) {
            return uci_to_option(element);
        }
    }
    return nullptr;
}

bool set_string(uci_section *section, char *name, char *value)
{
    uci_option *option = find_option(section, name);
    if (!option) {
        option = new_option(section, name, UCI_TYPE_STRING);
    }
    if (!option) {
        return false;
    }
    option->type = UCI_TYPE_STRING;
    option->v.string = value;
    return true;
}

bool add_to_list(uci_section *section, char *name, char *value)
{
    uci_option *option = find_option(section, name);
    uci_element *item = new_item(section, value);
    if (!item) {
        return false;
    }
    if (!option) {
        option = new_option(section, name, UCI_TYPE_LIST);
        if (!option) {
            return false;
        }
    } else if (option->type == UCI_TYPE_STRING) {
        uci_element *first = new_item(section, option->v.string);
        if (!first) {
            return false;
        }
        option->type = UCI_TYPE_LIST;
        list_init(&option->v.list);
        list_insert_before(&option->v.list, &first->list);
    }
    list_insert_before(&option->v.list, &item->list);
    return true;
}

uci_package *new_package(uci_context *ctx, const char *name, const char *path)
{
    auto *whole = static_cast<whole_package *>(calloc(1, sizeof(whole_package)));
    if (!whole) {
        return nullptr;
    }
    uci_package *package = &whole->package;
    package->e.type = UCI_TYPE_PACKAGE;
    package->e.name = whole->memory.copy(name);
    package->path = whole->memory.copy(path);
    package->ctx = ctx;
    list_init(&package->e.list);
    list_init(&package->sections);
    list_init(&package->delta);
    list_init(&package->saved_delta);
    if (!package->e.name || !package->path) {
        free_package(package);
        return nullptr;
    }
    return package;
}

bool keep_text(uci_package *package, char *text)
{
    return memory_of(package).adopt(text);
}

void free_package(uci_package *package)
{
    list_remove(&package->e.list);
    memory_of(package).release();
    free(container_of(package, whole_package, package));
}

} // namespace uci
