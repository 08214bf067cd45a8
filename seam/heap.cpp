// Allocations of the daemon, which can be made to fail. Only for the preloaded library: in process the
// allocator is that of the program or its sanitizer.

#include "call.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <libubus.h>

using namespace seam;

namespace {

template <typename Function> Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool refused(const void *site)
{
    if (!from_daemon(site)) {
        return false;
    }
    Call call({"alloc", site}, Call::Kind::action);
    const std::optional<long> wanted = call.demanded();
    if (!wanted || *wanted == 0) {
        return false;
    }
    call.done(*wanted);
    return true;
}

} // namespace

extern "C" {

void *malloc(size_t size)
{
    static void *(*real)(size_t) = next<void *(size_t)>("malloc");
    return refused(__builtin_return_address(0)) ? nullptr : real(size);
}

void *calloc(size_t count, size_t size)
{
    static void *(*real)(size_t, size_t) = next<void *(size_t, size_t)>("calloc");
    return refused(__builtin_return_address(0)) ? nullptr : real(count, size);
}

// A message that the daemon builds grows by the message library's own allocations.

int blob_buf_init(blob_buf *buf, int id)
{
    return refused(__builtin_return_address(0)) ? -ENOMEM : next<int(blob_buf *, int)>(__func__)(buf, id);
}

int blobmsg_add_field(blob_buf *buf, int type, const char *name, const void *data, unsigned length)
{
    return refused(__builtin_return_address(0))
               ? -1
               : next<int(blob_buf *, int, const char *, const void *, unsigned)>(__func__)(buf, type, name,
                                                                                            data, length);
}

void *blobmsg_open_nested(blob_buf *buf, const char *name, bool array)
{
    return refused(__builtin_return_address(0))
               ? nullptr
               : next<void *(blob_buf *, const char *, bool)>(__func__)(buf, name, array);
}

} // extern "C"
