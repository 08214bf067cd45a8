#include "check/package.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

const char *section::text(const char *option) const
{
    uci_element *element = nullptr;
    uci_foreach_element(&parsed->options, element)
    {
        const uci_option *found = uci_to_option(element);
        if (found->type == UCI_TYPE_STRING && strcmp(element->name, option) == 0) {
            return found->v.string;
        }
    }
    return nullptr;
}

package::~package()
{
    if (context_ != nullptr) {
        uci_free_context(context_);
    }
}

package_state package::load(const char *path, effect of_failure, const char *does, findings &found)
{
    path_ = path;
    context_ = uci_alloc_context();
    if (context_ == nullptr) {
        abort();
    }
    const int code = uci_load(context_, path, &loaded_);
    if (code == UCI_OK) {
        return package_state::good;
    }
    char *reason = nullptr;
    uci_get_errorstr(context_, &reason, nullptr);
    // "I/O error", "Parse error (why) at line 3, byte 5", each behind blanks or a colon.
    const char *text = reason != nullptr ? reason + strspn(reason, ": ") : "cannot be read";
    found.add({path}, of_failure, does, "%s", code == UCI_ERR_NOTFOUND ? "the file is missing" : text);
    free(reason);
    loaded_ = nullptr;
    return code == UCI_ERR_NOTFOUND ? package_state::missing : package_state::malformed;
}

} // namespace ctl
