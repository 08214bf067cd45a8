// Packages as text that can be read again.
#include "internal.h"

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

void put_package(const uci_context *ctx, FILE *stream, const uci_package *package, bool header)
{
    if (header) {
        fprintf(stream, "package %s\n", package->e.name);
    }
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        const uci_section *section = uci_to_section(element);
        fprintf(stream, "\nconfig %s", section->type);
        if (!section->anonymous || (ctx->flags & UCI_FLAG_EXPORT_NAME)) {
            fprintf(stream, " '%s'", section->e.name);
        }
        fputc('\n', stream);
        uci_element *option;
        uci_foreach_element(&section->options, option)
        {
            put_option(stream, uci_to_option(option));
        }
    }
    fputc('\n', stream);
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
    if (package) {
        put_package(ctx, stream, package, header);
    } else {
        uci_element *element;
        uci_foreach_element(&ctx->root, element)
        {
            put_package(ctx, stream, uci_to_package(element), header);
        }
    }
    return uci::set_error(ctx, ferror(stream) ? UCI_ERR_IO : UCI_OK);
}
