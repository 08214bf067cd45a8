// Contexts, their folders, and the text of errors.
#include "internal.h"

#include <cstdlib>
#include <cstring>

namespace {

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

uci_element *find_delta_path(uci_context *ctx, const char *dir)
{
    uci_element *folder;
    uci_foreach_element(&ctx->delta_path, folder)
    {
        if (strcmp(folder->name, dir) == 0) {
            return folder;
        }
    }
    return nullptr;
}

// The last one, with its name behind it in one block.
uci_element *add_delta_path(uci_context *ctx, const char *dir)
{
    const size_t size = strlen(dir) + 1;
    auto *folder = static_cast<uci_element *>(malloc(sizeof(uci_element) + size));
    if (folder) {
        *folder = {};
        folder->type = UCI_TYPE_ITEM;
        folder->name = static_cast<char *>(memcpy(folder + 1, dir, size));
        uci::list_insert_before(&ctx->delta_path, &folder->list);
    }
    return folder;
}

constexpr const char *error_texts[UCI_ERR_LAST] = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};

} // namespace

struct uci_context *uci_alloc_context(void)
{
    auto *ctx = static_cast<uci_context *>(calloc(1, sizeof(uci_context)));
    if (!ctx) {
        return nullptr;
    }
    uci::list_init(&ctx->root);
    uci::list_init(&ctx->backends);
    uci::list_init(&ctx->delta_path);
    ctx->flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);
    ctx->pctx = static_cast<uci_parse_context *>(calloc(1, sizeof(uci_parse_context)));
    if (!ctx->pctx || !replace_text(&ctx->confdir, UCI_CONFDIR) ||
        !replace_text(&ctx->conf2dir, UCI_CONF2DIR) || uci_set_savedir(ctx, UCI_SAVEDIR) != UCI_OK) {
        uci_free_context(ctx);
        return nullptr;
    }
    return ctx;
}

void uci_free_context(struct uci_context *ctx)
{
    if (!ctx) {
        return;
    }
    uci_element *element;
    uci_element *following;
    uci_foreach_element_safe(&ctx->root, following, element)
    {
        uci::free_package(uci_to_package(element));
    }
    uci_foreach_element_safe(&ctx->delta_path, following, element)
    {
        free(element);
    }
    free(ctx->pctx);
    free(ctx->confdir);
    free(ctx->conf2dir);
    free(ctx->savedir);
    free(ctx);
}

int uci_set_confdir(struct uci_context *ctx, const char *dir)
{
    if (!dir) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    return uci::set_error(ctx, replace_text(&ctx->confdir, dir) ? UCI_OK : UCI_ERR_MEM);
}

int uci_set_conf2dir(struct uci_context *ctx, const char *dir)
{
    if (!dir || !*dir) {
        free(ctx->conf2dir);
        ctx->conf2dir = nullptr;
        return uci::set_error(ctx, UCI_OK);
    }
    return uci::set_error(ctx, replace_text(&ctx->conf2dir, dir) ? UCI_OK : UCI_ERR_MEM);
}

int uci_set_savedir(struct uci_context *ctx, const char *dir)
{
    if (!dir) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    uci_element *known = find_delta_path(ctx, dir);
    if (!known) {
        known = add_delta_path(ctx, dir);
    }
    if (!known || !replace_text(&ctx->savedir, dir)) {
        return uci::set_error(ctx, UCI_ERR_MEM);
    }
    // Its changes are the newest. The folder that had this place before is read on, one earlier.
    uci::list_remove(&known->list);
    uci::list_insert_before(&ctx->delta_path, &known->list);
    return uci::set_error(ctx, UCI_OK);
}

int uci_add_delta_path(struct uci_context *ctx, const char *dir)
{
    if (!dir) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    if (find_delta_path(ctx, dir)) {
        return uci::set_error(ctx, UCI_ERR_DUPLICATE);
    }
    uci_list *newest = ctx->delta_path.prev;
    if (!add_delta_path(ctx, dir)) {
        return uci::set_error(ctx, UCI_ERR_MEM);
    }
    uci::list_remove(newest);
    uci::list_insert_before(&ctx->delta_path, newest);
    return uci::set_error(ctx, UCI_OK);
}

void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str)
{
    int code = ctx ? ctx->err : UCI_ERR_INVAL;
    if (code < 0 || code >= UCI_ERR_LAST) {
        code = UCI_ERR_UNKNOWN;
    }
    char place[128] = "";
    if (code == UCI_ERR_PARSE && ctx->pctx->reason) {
        snprintf(place, sizeof place, " (%s) at line %d, byte %d", ctx->pctx->reason, ctx->pctx->line,
                 ctx->pctx->byte);
    }
    if (asprintf(dest, "%s%s%s%s", str ? str : "", str ? ": " : "", error_texts[code], place) < 0) {
        *dest = nullptr;
    }
}

void uci_perror(struct uci_context *ctx, const char *str)
{
    char *text = nullptr;
    uci_get_errorstr(ctx, &text, str);
    fprintf(stderr, "%s\n", text ? text : error_texts[UCI_ERR_MEM]);
    free(text);
}
