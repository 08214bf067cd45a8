// An owned copy of a message attribute, and a message under construction; freed by scope.
#pragma once

#include "bus_headers.h"

#include <cstdlib>
#include <memory>

namespace lab {

struct FreeBlob {
    void operator()(blob_attr *attr) const { free(attr); }
};
using BlobCopy = std::unique_ptr<blob_attr, FreeBlob>;

// Libraries before 2024-12 declare blob_memdup's argument without const, and only read it.
inline BlobCopy copy_blob(const blob_attr *attr)
{
    return BlobCopy(attr != nullptr ? blob_memdup(const_cast<blob_attr *>(attr)) : nullptr);
}

class Message {
public:
    Message() { blob_buf_init(&buffer_, 0); }
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;
    ~Message() { blob_buf_free(&buffer_); }

    blob_buf *get() { return &buffer_; }
    blob_attr *head() { return buffer_.head; }

private:
    blob_buf buffer_{};
};

} // namespace lab
