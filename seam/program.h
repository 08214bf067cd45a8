// The code of the program that runs, as the loader has placed it. A call from there is the program's, any
// other one of its libraries'.
#pragma once

#include <cstdint>
#include <link.h>

namespace seam {

struct Program {
    uintptr_t base = 0;
    uintptr_t begin = 0;
    uintptr_t end = 0;

    bool holds(const void *site) const
    {
        const auto address = reinterpret_cast<uintptr_t>(site);
        return address >= begin && address < end;
    }
};

inline Program find_program()
{
    Program program;
    // The first object that the loader reports is the program itself.
    const auto note = [](dl_phdr_info *info, size_t /*size*/, void *out) {
        auto &found = *static_cast<Program *>(out);
        found.base = info->dlpi_addr;
        for (int i = 0; i < info->dlpi_phnum; ++i) {
            const ElfW(Phdr) &header = info->dlpi_phdr[i];
            if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
                found.begin = info->dlpi_addr + header.p_vaddr;
                found.end = found.begin + header.p_memsz;
            }
        }
        return 1;
    };
    dl_iterate_phdr(note, &program);
    return program;
}

} // namespace seam
