/*
 * Small files that several programs read and write: read whole, replaced whole, changed under a lock.
 *
 * text: Owns growing bytes; a failed allocation is remembered and shows in ok().
 *
 * file_lock: Owns an exclusive lock for its scope.
 *
 * read_file: All of a regular file, at most `limit` bytes. Links are followed.
 *
 * replace_file: Writes a new file beside the old one, makes it durable and renames it into place: readers see
 * the old text or the new one, never a part, and a failure at any step leaves the old one. The mode is
 * exactly `mode`. Callers hold a lock, because the new file's name is fixed (what a killed writer leaves is
 * overwritten). A link in the file's place is followed or replaced itself.
 *
 * make_folders: Every missing folder of a path.
 *
 * Results: 0 or an errno value; reporting is the caller's.
 */
#pragma once

#include "internal.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/types.h>

namespace libsys {

class text {
public:
    text() = default;
    text(const text &) = delete;
    text &operator=(const text &) = delete;
    ~text() { free(bytes_); }

    // Room for that many more bytes and a terminator; null when memory is short.
    char *reserve(size_t more)
    {
        if (room_ - length_ <= more) {
            size_t room = (length_ + more) * 2 + 64;
            auto *grown = static_cast<char *>(realloc(bytes_, room));
            if (!grown) {
                ok_ = false;
                return nullptr;
            }
            bytes_ = grown;
            room_ = room;
        }
        return bytes_ + length_;
    }
    void grew(size_t by)
    {
        length_ += by;
        bytes_[length_] = '\0';
    }
    void append(std::string_view more)
    {
        if (char *end = reserve(more.size())) {
            if (!more.empty()) {
                memcpy(end, more.data(), more.size());
            }
            grew(more.size());
        }
    }
    void append(char c) { append(std::string_view(&c, 1)); }
    void clear() { length_ = 0; }

    bool ok() const { return ok_; }
    std::string_view view() const { return {bytes_ ? bytes_ : "", length_}; }

private:
    char *bytes_ = nullptr;
    size_t length_ = 0;
    size_t room_ = 0;
    bool ok_ = true;
};

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
