// What the daemon says of itself, as JSON: the objects it registers with their methods and fields, and the
// chains that it lays. Tests compare books, access files and scripts with this.
//
//   {"objects": {OBJECT: {"type": TYPE, "methods": {METHOD: {"fields": {FIELD: KIND}, "mask": N, "tags":
//   N}}}},
//    "hooks": [[TABLE, PARENT, CHAIN]], "refilled": [[TABLE, CHAIN]]}
//
// The calls that carry these facts are defined here; every other one is answered by the recorder.

#include "core/bus_objects.h"
#include "firewall/chains.h"
#include "platform/bus.h"
#include "platform/command.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <libubus.h>

namespace {

const char *separator = "";

const char *kind(int type)
{
    switch (type) {
    case BLOBMSG_TYPE_STRING:
        return "text";
    case BLOBMSG_TYPE_INT32:
        return "number";
    case BLOBMSG_TYPE_ARRAY:
        return "array of texts";
    default:
        return "unknown";
    }
}

void show_method(const ubus_method &method)
{
    std::printf("\"%s\": {\"fields\": {", method.name);
    for (int i = 0; i < method.n_policy; i++) {
        std::printf("%s\"%s\": \"%s\"", i == 0 ? "" : ", ", method.policy[i].name,
                    kind(static_cast<int>(method.policy[i].type)));
    }
    std::printf("}, \"mask\": %lu, \"tags\": %lu}", method.mask, method.tags);
}

void show_object(const ubus_object &object)
{
    std::printf("%s\n  \"%s\": {\"type\": \"%s\", \"methods\": {", separator, object.name, object.type->name);
    for (int i = 0; i < object.n_methods; i++) {
        std::printf("%s\n    ", i == 0 ? "" : ",");
        show_method(object.methods[i]);
    }
    std::printf("}}");
    separator = ",";
}

// The chain that was made last, and not hooked yet.
char chain_made[64];

void chain_note(const char *chain)
{
    std::snprintf(chain_made, sizeof(chain_made), "%s", chain);
}

// Chains are laid in two passes; the first shows their hooks, the second what is emptied.
bool show_refilled;

} // namespace

int ubuslib_invoke_init(int, struct ubus_object **objects, int count)
{
    for (int i = 0; i < count; i++) {
        show_object(*objects[i]);
    }
    return 0;
}

int iptlib_chain_is_exist(const char *, const char *)
{
    return 0;
}

int iptlib_rule_is_exist(const char *, const char *, const char *)
{
    return 0;
}

int iptlib_chain_new(const char *, const char *chain)
{
    chain_note(chain);
    return 0;
}

int iptlib_rule_append(const char *table, const char *parent, const char *rule)
{
    if (!show_refilled && std::strncmp(rule, "-j ", 3) == 0 && std::strcmp(rule + 3, chain_made) == 0) {
        std::printf("%s\n  [\"%s\", \"%s\", \"%s\"]", separator, table, parent, chain_made);
        separator = ",";
    }
    return 0;
}

int iptlib_rules_flush(const char *table, const char *chain)
{
    if (show_refilled) {
        std::printf("%s\n  [\"%s\", \"%s\"]", separator, table, chain);
        separator = ",";
    }
    return 0;
}

int cmdlib_do_iptables_cmd(const char *format, ...)
{
    char line[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    if (const char *chain = std::strstr(line, " -N "); chain != nullptr) {
        chain_note(chain + 4);
    }
    return 0;
}

int main()
{
    std::printf("{\"objects\": {");
    int rv = ivarode_ubus_init();
    separator = "";
    std::printf("\n},\n\"hooks\": [");
    rv |= netpre_init();
    separator = "";
    show_refilled = true;
    std::printf("\n],\n\"refilled\": [");
    rv |= netpre_init();
    std::printf("\n]}\n");
    return rv == 0 ? 0 : 1;
}
