// UCI packages, read afresh for each walk: what is on disk counts, and nothing is kept in memory between
// walks.
//
// A package is loaded by its path, because only so it comes without the saved, uncommitted changes: those lie
// in /tmp/.uci, where anybody may have been first, and would be taken for the administrator's.
#include "exports.h"
#include "internal.h"
#include "places.h"

#include <cstdlib>
#include <cstring>
#include <uci.h>

namespace {

int errno_of(int code)
{
    switch (code) {
    case UCI_ERR_MEM:
        return ENOMEM;
    case UCI_ERR_INVAL:
        return EINVAL;
    case UCI_ERR_NOTFOUND:
        return ENOENT;
    case UCI_ERR_PARSE:
        return EBADMSG;
    default:
        return EIO;
    }
}

// Only the parser knows the place of a mistake, so that is reported here.
void report_syntax(uci_context *ctx, const char *package)
{
    char *reason = nullptr;
    uci_get_errorstr(ctx, &reason, nullptr);
    outlib_error("configuration package %s: %s\n", package, libsys::shown(reason));
    free(reason);
}

} // namespace

int ucilib_foreach_section(const char *package, const char *type, ucilib_section_cb cb, void *arg)
{
    constexpr const char *operation = "ucilib_foreach_section";
    if (package == nullptr || type == nullptr || cb == nullptr) {
        return libsys::fail(EINVAL, operation, "%s, %s", libsys::shown(package), libsys::shown(type));
    }
    char path[256];
    int length = snprintf(path, sizeof(path), "%s/%s", libsys::config_folder, package);
    if (strchr(package, '/') != nullptr || length >= static_cast<int>(sizeof(path))) {
        return libsys::fail(EINVAL, operation, "%s, %s", package, type);
    }
    const libsys::owned<uci_context, uci_free_context> owner(uci_alloc_context());
    uci_context *ctx = owner.get();
    if (ctx == nullptr) {
        return libsys::fail(ENOMEM, operation, "%s, %s", package, type);
    }
    uci_package *loaded = nullptr;
    int code = uci_load(ctx, path, &loaded);
    if (code != UCI_OK) {
        if (code == UCI_ERR_PARSE) {
            report_syntax(ctx, package);
        }
        return libsys::fail(errno_of(code), operation, "%s, %s", package, type);
    }
    uci_element *element;
    uci_foreach_element(&loaded->sections, element)
    {
        uci_section *section = uci_to_section(element);
        if (strcmp(section->type, type) == 0) {
            if (int result = cb(ctx, section, arg)) {
                return result;
            }
        }
    }
    return 0;
}

const char *ucilib_lookup_option_string(struct uci_context *ctx, struct uci_section *s, const char *option,
                                        const char *def)
{
    const char *value = ctx != nullptr && s != nullptr && option != nullptr
                            ? uci_lookup_option_string(ctx, s, option)
                            : nullptr;
    return value != nullptr ? value : def;
}
