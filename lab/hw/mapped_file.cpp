#include "mapped_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lab {

namespace {

int map_region(int fd, uint32_t offset, size_t length, bool create, void *&address)
{
    struct stat status {};
    if (fstat(fd, &status) < 0) {
        return -errno;
    }
    const off_t needed = static_cast<off_t>(offset) + static_cast<off_t>(length);
    if (status.st_size < needed) {
        // A mapping beyond the end would end the process with SIGBUS at the first access.
        if (!create) {
            return -ENXIO;
        }
        if (ftruncate(fd, needed) < 0) {
            return -errno;
        }
    }
    void *mapping = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(offset));
    if (mapping == MAP_FAILED) {
        return -errno;
    }
    address = mapping;
    return 0;
}

} // namespace

MappedFile::~MappedFile()
{
    if (address_ != nullptr) {
        munmap(address_, size_);
    }
}

int MappedFile::open(const char *path, uint32_t offset, size_t length, bool create)
{
    const int fd = ::open(path, O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0600);
    if (fd < 0) {
        return -errno;
    }
    const int result = map_region(fd, offset, length, create, address_);
    ::close(fd);
    if (result == 0) {
        size_ = length;
    }
    return result;
}

} // namespace lab
