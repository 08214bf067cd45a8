// Finding elements by name or by path.
#include "internal.h"

#include <cstdlib>
#include <cstring>

namespace {

bool is_extended(const char *section)
{
    return section && section[0] == '@';
}

// "@type[index]" or "@[index]".
bool valid_extended(const char *section)
{
    const char *open_bracket = strchr(section, '[');
    if (!open_bracket) {
        return false;
    }
    char *rest = nullptr;
    strtol(open_bracket + 1, &rest, 10);
    return rest != open_bracket + 1 && strcmp(rest, "]") == 0;
}

uci_section *find_extended(const uci_package *package, const char *section)
{
    const char *type = section + 1;
    const char *open_bracket = strchr(type, '[');
    auto type_length = static_cast<size_t>(open_bracket - type);
    auto fits = [&](const uci_section *candidate) {
        return type_length == 0 ||
               (strncmp(candidate->type, type, type_length) == 0 && candidate->type[type_length] == '\0');
    };
    long index = strtol(open_bracket + 1, nullptr, 10);
    uci_element *element;
    if (index < 0) {
        uci_foreach_element(&package->sections, element)
        {
            index += fits(uci_to_section(element)) ? 1 : 0;
        }
        if (index < 0) {
            return nullptr;
        }
    }
    uci_foreach_element(&package->sections, element)
    {
        if (fits(uci_to_section(element)) && index-- == 0) {
            return uci_to_section(element);
        }
    }
    return nullptr;
}

void add_flags(uci_ptr *ptr, int more)
{
    ptr->flags = static_cast<decltype(ptr->flags)>(ptr->flags | more);
}

} // namespace

int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name)
{
    uci_element *element;
    *e = nullptr;
    if (!name) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    uci_foreach_element(list, element)
    {
        if (uci::is_named(element, name)) {
            *e = element;
            return uci::set_error(ctx, UCI_OK);
        }
    }
    return uci::set_error(ctx, UCI_ERR_NOTFOUND);
}

int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str)
{
    *ptr = {};
    ctx->pctx->reason = nullptr;
    if (!str) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    if (char *equals = strchr(str, '=')) {
        *equals = '\0';
        ptr->value = equals + 1;
    }
    ptr->package = str;
    ptr->target = UCI_TYPE_PACKAGE;
    if (char *dot = strchr(str, '.')) {
        *dot = '\0';
        char *section = dot + 1;
        ptr->section = section;
        ptr->target = UCI_TYPE_SECTION;
        // A type between the brackets' sign and index may hold dots.
        char *bracket = section[0] == '@' ? strchr(section, ']') : nullptr;
        if (char *option = strchr(bracket ? bracket : section, '.')) {
            *option = '\0';
            ptr->option = option + 1;
            ptr->target = UCI_TYPE_OPTION;
        }
    }
    bool valid = uci::valid_package_name(ptr->package) && (!ptr->option || uci::valid_name(ptr->option));
    if (is_extended(ptr->section)) {
        add_flags(ptr, uci_ptr::UCI_LOOKUP_EXTENDED);
        valid = valid && valid_extended(ptr->section);
    } else {
        valid = valid && (!ptr->section || uci::valid_name(ptr->section));
    }
    return uci::set_error(ctx, valid ? UCI_OK : UCI_ERR_PARSE);
}

int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended)
{
    if (str) {
        if (int code = uci_parse_ptr(ctx, ptr, str)) {
            return code;
        }
    } else if (is_extended(ptr->section)) {
        if (!valid_extended(ptr->section)) {
            return uci::set_error(ctx, UCI_ERR_PARSE);
        }
        add_flags(ptr, uci_ptr::UCI_LOOKUP_EXTENDED);
    }
    if (!ptr->package || ((ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) && !extended)) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    add_flags(ptr, uci_ptr::UCI_LOOKUP_DONE);
    ptr->p = uci_lookup_package(ctx, ptr->package);
    if (!ptr->p) {
        if (int code = uci_load(ctx, ptr->package, &ptr->p)) {
            return code;
        }
    }
    ptr->last = &ptr->p->e;
    bool complete = true;
    if (ptr->section) {
        ptr->s = ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED ? find_extended(ptr->p, ptr->section)
                                                           : uci::find_section(ptr->p, ptr->section);
        complete = ptr->s != nullptr;
        if (ptr->s) {
            ptr->section = ptr->s->e.name;
            ptr->last = &ptr->s->e;
        }
    }
    if (ptr->s && ptr->option) {
        ptr->o = uci::find_option(ptr->s, ptr->option);
        complete = ptr->o != nullptr;
        if (ptr->o) {
            ptr->last = &ptr->o->e;
        }
    }
    if (complete) {
        add_flags(ptr, uci_ptr::UCI_LOOKUP_COMPLETE);
    }
    return uci::set_error(ctx, UCI_OK);
}
