// The shared memory objects of the debug facility, as the library and the tool ivarodectl see them. Both are
// meaningful when filled with zeros, so the daemon or an operator as root may make them first, and nothing
// needs a version or an owner process. They outlive the daemon: an operator can set the debug word before a
// start and read the records after a crash.
#pragma once

#include "internal.h"

#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace libsys {

constexpr const char *debug_object = "/ivarode-debug";
constexpr const char *record_object = "/ivarode-records";
constexpr size_t debug_object_size = 4096;

// What g_netd_dbg_shm points to.
struct debug_area {
    uint32_t bits;
    uint32_t reserved[3];
    uint64_t samples; // counted by the daemon, at netdbg_counter_offset
};

// One place in a program that handed a null pointer to a checked string operation. Free while count is 0.
struct null_record {
    uint32_t count;
    int32_t line;
    char function[40]; // cut to fit, always terminated
};

struct record_area {
    uint32_t lost; // null pointers of places that found no free record
    uint32_t reserved[3];
    null_record places[64];
};
static_assert(sizeof(record_area) <= debug_object_size);

// What an object is to those who find none: only who may lay one for the daemon makes it.
enum class absent { is_made, is_error };

// Maps an object for reading and writing; null with errno set. Everybody may write to the folder of these
// objects, so only a regular file of the caller's own counts, one that nobody else has under another name or
// could shrink. The memory is reserved here, so that a full /dev/shm is an error now and not a bus error
// later.
inline void *map_debug_object(const char *name, absent policy)
{
    unique_fd fd(shm_open(name, O_RDWR | O_CLOEXEC | O_NONBLOCK | (policy == absent::is_made ? O_CREAT : 0),
                          S_IRUSR | S_IWUSR));
    if (!fd) {
        return nullptr;
    }
    struct stat info;
    if (fstat(fd.get(), &info) != 0) {
        return nullptr;
    }
    if (!S_ISREG(info.st_mode) || info.st_nlink != 1 || info.st_uid != geteuid()) {
        errno = EPERM;
        return nullptr;
    }
    int error = 0;
    do {
        error = posix_fallocate(fd.get(), 0, debug_object_size);
    } while (error == EINTR);
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    void *area = mmap(nullptr, debug_object_size, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    return area == MAP_FAILED ? nullptr : area;
}

} // namespace libsys
