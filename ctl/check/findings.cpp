#include "check/findings.h"

#include <cstdarg>
#include <cstdio>

namespace ctl {

namespace {

constexpr const char *names[] = {"ends", "broken", "ignored", "taken"};

} // namespace

void findings::add(const place &where, effect what_comes, const char *does, const char *format, ...)
{
    char what[256];
    va_list args;
    va_start(args, format);
    vsnprintf(what, sizeof(what), format, args);
    va_end(args);
    json_object *made = append_table(list_.get());
    put(made, "file", where.file);
    if (where.section != nullptr) {
        put(made, "section", where.section);
    }
    if (where.option != nullptr) {
        put(made, "option", where.option);
    }
    put(made, "what", what);
    put(made, "effect", names[static_cast<int>(what_comes)]);
    put(made, "does", does);
    ends_ = ends_ || what_comes == effect::ends;
}

} // namespace ctl
