// Packages as text that can be read again.
#include "internal.h"
#include "section_index.h"

namespace {

void put_quoted(FILE *stream, const char *value)
{
    fputc('\'', stream);
    for (; *value; value++) {
        if (*value == '\'') {
            fputs("'\\''", stream);
        } else {
            fputc(*value, stream);
        }
    }
    fputc('\'', stream);
}

void put_option(FILE *stream, const uci_option *option)
{
    if (option->type == UCI_TYPE_STRING) {
        fprintf(stream, "\toption %s ", option->e.name);
        put_quoted(stream, option->v.string);
        fputc('\n', stream);
        return;
    }
    uci_element *item;
    uci_foreach_element(&option->v.list, item)
    {
        fprintf(stream, "\tlist %s ", option->e.name);
        put_quoted(stream, item->name);
        fputc('\n', stream);
    }
}

bool is_behind(const uci_section *candidate, const uci_section *section)
{
    const uci_list *end = &section->package->sections;
    const uci_list *entry = section->e.list.next;
    while (entry != end && entry != &candidate->e.list) {
        entry = entry->next;
    }
    return entry != end;
}

// False without memory. A section without a name is written without one, and has one again from its place
// when it is read. Where a section behind it bears that name the two would become one, or not be read at all:
// it is written with a name that nobody has.
bool put_package(FILE *stream, const uci_package *package, bool header)
{
    const bool all_named = package->ctx->flags & UCI_FLAG_EXPORT_NAME;
    uci::section_index named;
    int spare = 0; // no section's place, nor any before it
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        uci_section *section = uci_to_section(element);
        spare++;
        if (!section->anonymous && !named.add(section)) {
            return false;
        }
    }
    if (header) {
        fprintf(stream, "package %s\n", package->e.name);
    }
    int place = 0;
    uci_foreach_element(&package->sections, element)
    {
        const uci_section *section = uci_to_section(element);
        uci::section_name given(++place, section->type);
        const uci_section *owner = section->anonymous ? named.find(given.text) : nullptr;
        const bool clashes = owner && is_behind(owner, section);
        while (clashes && named.find(given.text)) {
            given = uci::section_name(++spare, section->type);
        }
        fprintf(stream, "\nconfig %s", section->type);
        if (clashes || !section->anonymous || all_named) {
            fprintf(stream, " '%s'", clashes ? given.text : section->e.name);
        }
        fputc('\n', stream);
        uci_element *option;
        uci_foreach_element(&section->options, option)
        {
            put_option(stream, uci_to_option(option));
        }
    }
    fputc('\n', stream);
    return true;
}

} // namespace

int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header)
{
    if (!ctx) {
        return UCI_ERR_INVAL;
    }
    if (!stream) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    bool put = true;
    if (package) {
        put = put_package(stream, package, header);
    } else {
        uci_element *element;
        uci_foreach_element(&ctx->root, element)
        {
            put = put && put_package(stream, uci_to_package(element), header);
        }
    }
    if (!put) {
        return uci::set_error(ctx, UCI_ERR_MEM);
    }
    return uci::set_error(ctx, ferror(stream) ? UCI_ERR_IO : UCI_OK);
}
