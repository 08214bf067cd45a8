#include "debug.h"

#include "debug_area.h"
#include "exports.h"

#include <cstring>
#include <syslog.h>

static_assert(offsetof(libsys::debug_area, samples) == netdbg_counter_offset);

uint32_t *g_netd_dbg_shm = nullptr;

namespace {

libsys::record_area *records = nullptr;

// The object, or where it cannot be had memory of this process alone: the daemon ends for good without any,
// and anybody who may write to /dev/shm could see to that.
void *map_object_or_own(const char *name)
{
    if (void *area = libsys::map_debug_object(name, libsys::absent::is_made)) {
        return area;
    }
    libsys::log_line(LOG_WARNING, "/dev/shm%s cannot be used, ivarodectl sees nothing of it: %s", name,
                     strerror(errno));
    void *area =
        mmap(nullptr, libsys::debug_object_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return area == MAP_FAILED ? nullptr : area;
}

bool is_place(const libsys::null_record &place, const char *function, int line)
{
    return place.line == line && strncmp(place.function, function, sizeof(place.function) - 1) == 0;
}

} // namespace

int netdbg_shm_init(void)
{
    if (g_netd_dbg_shm == nullptr) {
        g_netd_dbg_shm = static_cast<uint32_t *>(map_object_or_own(libsys::debug_object));
    }
    return g_netd_dbg_shm != nullptr ? 0 : libsys::fail(errno, "netdbg_shm_init", "%s", libsys::debug_object);
}

int libsys_dbg_init(void)
{
    if (records == nullptr) {
        records = static_cast<libsys::record_area *>(map_object_or_own(libsys::record_object));
    }
    return records != nullptr ? 0 : libsys::fail(errno, "libsys_dbg_init", "%s", libsys::record_object);
}

void libsys::record_null(const char *operation, const char *function, int line)
{
    function = shown(function);
    outlib_debug("%s: null pointer from %s:%d\n", operation, function, line);
    if (records == nullptr) {
        return;
    }
    for (null_record &place : records->places) {
        if (place.count == 0) {
            snprintf(place.function, sizeof(place.function), "%s", function);
            place.line = line;
        }
        if (is_place(place, function, line)) {
            place.count++;
            return;
        }
    }
    records->lost++;
}
