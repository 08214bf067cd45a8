// Small files that several programs read and write: read whole, replaced whole, changed under a lock.
//
// file_lock: Owns an exclusive lock for its scope.
//
// read_file: All of a regular file, at most `limit` bytes. Links are followed.
//
// replace_file: Writes a new file beside the old one, makes it durable and renames it into place: readers see
// the old text or the new one, never a part, and a failure at any step leaves the old one. The mode is
// exactly `mode`. Callers hold a lock, because the new file's name is fixed (what a killed writer leaves is
// overwritten). A link in the file's place is followed or replaced itself.
//
// make_folders: Every missing folder of a path.
//
// Results: 0 or an errno value; reporting is the caller's.
#pragma once

#include "internal.h"
#include "text.h"

#include <string_view>
#include <sys/types.h>

namespace libsys {

class file_lock {
public:
    // Makes the lock file if needed. ETIMEDOUT when somebody else keeps it for longer than two seconds: the
    // caller serves the bus and must not stand still for a writer that hangs.
    int acquire(const char *path);

private:
    unique_fd fd_;
};

int read_file(const char *path, text &content, size_t limit);
enum class links { follow, replace };
int replace_file(const char *path, mode_t mode, std::string_view content, links link);
int make_folders(const char *path);

} // namespace libsys
