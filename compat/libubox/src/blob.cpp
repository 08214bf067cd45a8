// Attribute buffers: one growing block, addressed by offsets wherever a pointer would not survive its growth.
#include "exported.h"

#include <cerrno>

namespace {

constexpr size_t growth_step = 256;

char *base(const blob_buf *buf)
{
    return static_cast<char *>(buf->buf);
}

size_t offset_of(const blob_buf *buf, const blob_attr *attr)
{
    return static_cast<size_t>(reinterpret_cast<const char *>(attr) - base(buf));
}

blob_attr *attr_at(const blob_buf *buf, size_t offset)
{
    return reinterpret_cast<blob_attr *>(base(buf) + offset);
}

size_t padded(size_t len)
{
    return (len + BLOB_ATTR_ALIGN - 1) & ~static_cast<size_t>(BLOB_ATTR_ALIGN - 1);
}

bool grow_by_steps(blob_buf *buf, int minlen)
{
    const size_t delta = (static_cast<size_t>(minlen) / growth_step + 1) * growth_step;
    const size_t old_len = static_cast<size_t>(buf->buflen);
    auto *grown = static_cast<char *>(realloc(buf->buf, old_len + delta));

    if (grown == nullptr) {
        return false;
    }
    memset(grown + old_len, 0, delta);
    buf->buf = grown;
    buf->buflen = static_cast<int>(old_len + delta);
    return true;
}

void fill_pad(blob_attr *attr, size_t raw_len)
{
    memset(reinterpret_cast<char *>(attr) + raw_len, 0, padded(raw_len) - raw_len);
}

void set_header(blob_attr *attr, int id, size_t raw_len)
{
    attr->id_len = cpu_to_be32((static_cast<uint32_t>(id) << BLOB_ATTR_ID_SHIFT & BLOB_ATTR_ID_MASK) |
                               (static_cast<uint32_t>(raw_len) & BLOB_ATTR_LEN_MASK));
    fill_pad(attr, raw_len);
}

void set_raw_len(blob_attr *attr, size_t len)
{
    attr->id_len = cpu_to_be32((be32_to_cpu(attr->id_len) & ~static_cast<uint32_t>(BLOB_ATTR_LEN_MASK)) |
                               (static_cast<uint32_t>(len) & BLOB_ATTR_LEN_MASK));
}

// Makes room for an attribute of this raw length behind the open container; null when it does not fit.
blob_attr *make_room(blob_buf *buf, size_t raw_len)
{
    if (buf->head == nullptr || raw_len > BLOB_ATTR_LEN_MASK) {
        return nullptr;
    }
    const size_t offset = offset_of(buf, blob_next(buf->head));
    const size_t end = offset + padded(raw_len);
    if (end > static_cast<size_t>(buf->buflen) &&
        !blob_buf_grow(buf, static_cast<int>(end - static_cast<size_t>(buf->buflen)))) {
        return nullptr;
    }
    return attr_at(buf, offset);
}

void extend_head(blob_buf *buf, size_t len)
{
    set_raw_len(buf->head, blob_pad_len(buf->head) + len);
}

} // namespace

void blob_fill_pad(blob_attr *attr)
{
    fill_pad(attr, blob_raw_len(attr));
}

void blob_set_raw_len(blob_attr *attr, unsigned int len)
{
    set_raw_len(attr, len);
}

bool blob_attr_equal(const blob_attr *a1, const blob_attr *a2)
{
    if (a1 == nullptr || a2 == nullptr) {
        return a1 == a2;
    }
    return blob_pad_len(a1) == blob_pad_len(a2) && memcmp(a1, a2, blob_pad_len(a1)) == 0;
}

blob_attr *blob_memdup(const blob_attr *attr)
{
    const size_t len = blob_pad_len(attr);
    auto *copy = static_cast<blob_attr *>(malloc(len));
    if (copy != nullptr) {
        memcpy(copy, attr, len);
    }
    return copy;
}

int blob_buf_init(blob_buf *buf, int id)
{
    if (buf->grow == nullptr) {
        buf->grow = grow_by_steps;
    }
    if (buf->buflen < static_cast<int>(sizeof(blob_attr)) && !buf->grow(buf, sizeof(blob_attr))) {
        buf->head = nullptr;
        return -ENOMEM;
    }
    buf->head = attr_at(buf, 0);
    set_header(buf->head, id, sizeof(blob_attr));
    return 0;
}

void blob_buf_free(blob_buf *buf)
{
    free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

bool blob_buf_grow(blob_buf *buf, int required)
{
    if (required < 0 || buf->buflen + static_cast<int64_t>(required) > BLOB_ATTR_LEN_MASK) {
        return false;
    }
    const size_t head = buf->head != nullptr ? offset_of(buf, buf->head) : 0;
    if (buf->grow == nullptr || !buf->grow(buf, required)) {
        return false;
    }
    if (buf->head != nullptr) {
        buf->head = attr_at(buf, head);
    }
    return true;
}

blob_attr *blob_new(blob_buf *buf, int id, int payload)
{
    const size_t raw_len = sizeof(blob_attr) + static_cast<size_t>(payload);
    blob_attr *attr = payload < 0 ? nullptr : make_room(buf, raw_len);
    if (attr == nullptr) {
        return nullptr;
    }
    set_header(attr, id, raw_len);
    extend_head(buf, padded(raw_len));
    return attr;
}

blob_attr *blob_put(blob_buf *buf, int id, const void *ptr, unsigned int len)
{
    if (len > BLOB_ATTR_LEN_MASK) {
        return nullptr;
    }
    blob_attr *attr = blob_new(buf, id, static_cast<int>(len));
    if (attr != nullptr && ptr != nullptr) {
        memcpy(attr->data, ptr, len);
    }
    return attr;
}

blob_attr *blob_put_raw(blob_buf *buf, const void *ptr, unsigned int len)
{
    if (len < sizeof(blob_attr) || ptr == nullptr) {
        return nullptr;
    }
    blob_attr *attr = make_room(buf, len);
    if (attr == nullptr) {
        return nullptr;
    }
    extend_head(buf, len);
    memcpy(attr, ptr, len);
    return attr;
}

void *blob_nest_start(blob_buf *buf, int id)
{
    if (buf->head == nullptr) {
        return nullptr;
    }
    // The bias keeps the cookie of the outermost container from being null.
    const uintptr_t cookie = offset_of(buf, buf->head) + BLOB_COOKIE;
    buf->head = blob_new(buf, id, 0);
    // The buffer may move while the container is open, so the caller gets an offset in it.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return buf->head != nullptr ? reinterpret_cast<void *>(cookie) : nullptr;
}

void blob_nest_end(blob_buf *buf, void *cookie)
{
    const uintptr_t biased = reinterpret_cast<uintptr_t>(cookie);
    if (buf->head == nullptr || biased < BLOB_COOKIE) {
        return;
    }
    blob_attr *outer = attr_at(buf, biased - BLOB_COOKIE);
    set_raw_len(outer, blob_pad_len(outer) + blob_len(buf->head));
    buf->head = outer;
}
