// CPU registers by physical address, through /dev/mem. The page of the last register stays mapped: registers
// of one block follow each other.

// Physical addresses above 2 GiB must not turn into negative offsets on a 32-bit system.
#define _FILE_OFFSET_BITS 64

#include "exports.h"
#include "internal.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace libsys {

namespace {

constexpr char memory_device[] = "/dev/mem";

struct page {
    volatile uint32_t *words = nullptr;
    uint32_t base = 0;
};

uint32_t page_size()
{
    return static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
}

int map_page(uint32_t base, page *out)
{
    unique_fd memory(retry_eintr([] { return open(memory_device, O_RDWR | O_SYNC | O_CLOEXEC); }));
    if (!memory) {
        return errno;
    }
    // Beyond the end of a file that stands for the memory of a board, an access would be fatal.
    struct stat what = {};
    if (fstat(memory.get(), &what) != 0) {
        return errno;
    }
    if (S_ISREG(what.st_mode) && what.st_size < static_cast<off_t>(base) + page_size()) {
        return ENXIO;
    }
    void *words = mmap(nullptr, page_size(), PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), base);
    if (words == MAP_FAILED) {
        return errno;
    }
    *out = {static_cast<volatile uint32_t *>(words), base};
    return 0;
}

// The register, or null with *error set.
volatile uint32_t *find_register(uint32_t addr, int *error)
{
    static page kept;
    if (addr % sizeof(uint32_t) != 0) {
        *error = EINVAL;
        return nullptr;
    }
    uint32_t base = addr & ~(page_size() - 1);
    if (kept.words == nullptr || kept.base != base) {
        page fresh;
        *error = map_page(base, &fresh);
        if (*error) {
            return nullptr;
        }
        if (kept.words != nullptr) {
            munmap(const_cast<uint32_t *>(kept.words), page_size());
        }
        kept = fresh;
    }
    return kept.words + (addr - base) / sizeof(uint32_t);
}

} // namespace

} // namespace libsys

using namespace libsys;

int mtklib_cpu_reg_rd(uint32_t addr, uint32_t *value)
{
    int error = EINVAL;
    volatile uint32_t *found = value != nullptr ? find_register(addr, &error) : nullptr;
    if (found == nullptr) {
        return fail(error, __func__, "0x%08x", addr);
    }
    *value = *found;
    return 0;
}

int mtklib_cpu_reg_wr(uint32_t addr, uint32_t value)
{
    int error = EINVAL;
    volatile uint32_t *found = find_register(addr, &error);
    if (found == nullptr) {
        return fail(error, __func__, "0x%08x, 0x%08x", addr, value);
    }
    *found = value;
    return 0;
}
