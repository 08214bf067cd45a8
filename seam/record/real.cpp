#include "record/real.h"

#include "program.h"
#include "record/complain.h"
#include "record/writer.h"

#include <cstdlib>
#include <dlfcn.h>

namespace seam::record {
namespace {

Program program;

} // namespace

void note_program()
{
    program = find_program();
}

void *find_symbol(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

void *next_function(const char *name)
{
    void *function = find_symbol(name);
    if (function == nullptr) {
        complain("no function %s behind the recording", name);
        abort();
    }
    return function;
}

bool is_recorded(const void *site)
{
    return program.holds(site) && is_running();
}

} // namespace seam::record
