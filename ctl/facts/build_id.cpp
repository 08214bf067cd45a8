#include "facts/build_id.h"

#include "libsys/internal.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <link.h>

namespace ctl {

namespace {

template <typename Part> bool read_at(int fd, uint64_t offset, Part *part)
{
    return pread(fd, part, sizeof(*part), static_cast<off_t>(offset)) == static_cast<ssize_t>(sizeof(*part));
}

constexpr uint64_t padded(uint64_t size)
{
    return (size + 3) & ~uint64_t{3};
}

// The notes of one segment, one after the other.
bool id_in(int fd, const ElfW(Phdr) & segment, char *out, size_t size)
{
    uint64_t at = segment.p_offset;
    const uint64_t behind = at + segment.p_filesz;
    ElfW(Nhdr) note;
    while (at + sizeof(note) <= behind && read_at(fd, at, &note)) {
        const uint64_t content = at + sizeof(note) + padded(note.n_namesz);
        uint8_t id[32];
        if (note.n_type == NT_GNU_BUILD_ID && note.n_descsz <= sizeof(id) &&
            pread(fd, id, note.n_descsz, static_cast<off_t>(content)) ==
                static_cast<ssize_t>(note.n_descsz)) {
            for (size_t i = 0; i < note.n_descsz && 2 * i + 2 < size; ++i) {
                snprintf(out + 2 * i, 3, "%02x", id[i]);
            }
            return true;
        }
        at = content + padded(note.n_descsz);
    }
    return false;
}

} // namespace

void read_build_id(const char *path, char *out, size_t size)
{
    *out = '\0';
    const libsys::unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    ElfW(Ehdr) header;
    if (!fd || !read_at(fd.get(), 0, &header) || memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_phentsize != sizeof(ElfW(Phdr))) {
        return;
    }
    for (size_t i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment;
        if (read_at(fd.get(), header.e_phoff + i * sizeof(segment), &segment) && segment.p_type == PT_NOTE &&
            id_in(fd.get(), segment, out, size)) {
            return;
        }
    }
}

} // namespace ctl
