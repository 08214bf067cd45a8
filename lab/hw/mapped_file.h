// A region of a file mapped shared and writable; unmapped by scope. No exceptions and no heap, because the
// ioctl shim uses it inside the router's processes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lab {

class MappedFile {
public:
    MappedFile() = default;
    MappedFile(const MappedFile &) = delete;
    MappedFile &operator=(const MappedFile &) = delete;
    ~MappedFile();

    // Maps `length` bytes from `offset` (a multiple of the page size). With `create` the file is made if
    // absent and grown, sparse, to hold the region; without, a file too short is refused. 0 or a negative
    // errno.
    int open(const char *path, uint32_t offset, size_t length, bool create);

    bool mapped() const { return address_ != nullptr; }
    template <typename T> T *as() const { return static_cast<T *>(address_); }

private:
    void *address_ = nullptr;
    size_t size_ = 0;
};

} // namespace lab
