#include "record/real.h"

#include "record/complain.h"
#include "record/writer.h"

#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>

namespace seam::record {
namespace {

uintptr_t code_begin = 0;
uintptr_t code_end = 0;

// The first object that the loader reports is the program itself.
int note_program(dl_phdr_info *info, size_t /*size*/, void * /*data*/)
{
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &header = info->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            code_begin = info->dlpi_addr + header.p_vaddr;
            code_end = code_begin + header.p_memsz;
        }
    }
    return 1;
}

} // namespace

void note_program()
{
    dl_iterate_phdr(note_program, nullptr);
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
    const auto address = reinterpret_cast<uintptr_t>(site);
    return address >= code_begin && address < code_end && is_running();
}

} // namespace seam::record
