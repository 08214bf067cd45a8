// Building messages.
#include "exported.h"

#include <climits>
#include <cstdio>

namespace {

// A new value with room for `payload` bytes, not initialised; null when it does not fit.
blob_attr *new_value(blob_buf *buf, int type, const char *name, size_t payload)
{
    const size_t name_len = name != nullptr ? strlen(name) : 0;
    if (name_len > UINT16_MAX || payload > BLOB_ATTR_LEN_MASK) {
        return nullptr;
    }
    const auto hdr_len = static_cast<size_t>(blobmsg_hdrlen(static_cast<unsigned int>(name_len)));
    blob_attr *attr = blob_new(buf, type, static_cast<int>(hdr_len + payload));
    if (attr == nullptr) {
        return nullptr;
    }
    attr->id_len |= cpu_to_be32(BLOB_ATTR_EXTENDED);
    auto *hdr = static_cast<blobmsg_hdr *>(blob_data(attr));
    hdr->namelen = cpu_to_be16(static_cast<uint16_t>(name_len));
    if (name_len) {
        memcpy(hdr->name, name, name_len);
    }
    memset(hdr->name + name_len, 0, hdr_len - sizeof(*hdr) - name_len);
    return attr;
}

void shrink_head(blob_buf *buf, size_t len)
{
    blob_set_raw_len(buf->head, static_cast<unsigned int>(blob_pad_len(buf->head) - len));
}

} // namespace

int blobmsg_add_field(blob_buf *buf, int type, const char *name, const void *data, unsigned int len)
{
    blob_attr *attr = new_value(buf, type, name, len);
    if (attr == nullptr) {
        return -1;
    }
    if (len) {
        memcpy(blobmsg_data(attr), data, len);
    }
    return 0;
}

void *blobmsg_open_nested(blob_buf *buf, const char *name, bool array)
{
    if (buf->head == nullptr) {
        return nullptr;
    }
    const auto outer = reinterpret_cast<char *>(buf->head) - static_cast<char *>(buf->buf);
    blob_attr *attr = new_value(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    if (attr == nullptr) {
        return nullptr;
    }
    // blob_nest_end adds the whole payload of the nest, name header included, to the outer container.
    shrink_head(buf, blob_len(attr));
    buf->head = attr;
    // A place in the buffer, as from blob_nest_start. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<void *>(static_cast<uintptr_t>(outer) + BLOB_COOKIE);
}

void *blobmsg_alloc_string_buffer(blob_buf *buf, const char *name, unsigned int maxlen)
{
    blob_attr *attr = new_value(buf, BLOBMSG_TYPE_STRING, name, static_cast<size_t>(maxlen) + 1);
    if (attr == nullptr) {
        return nullptr;
    }
    // The container takes the value in only when its length is known.
    shrink_head(buf, blob_pad_len(attr));
    return blobmsg_data(attr);
}

void *blobmsg_realloc_string_buffer(blob_buf *buf, unsigned int maxlen)
{
    const auto *payload = static_cast<char *>(blobmsg_data(blob_next(buf->head)));
    const auto used = static_cast<size_t>(payload - static_cast<char *>(buf->buf));
    const size_t end = used + BLOBMSG_PADDING(static_cast<size_t>(maxlen) + 1);

    if (end > INT_MAX) {
        return nullptr;
    }
    if (end > static_cast<size_t>(buf->buflen) &&
        !blob_buf_grow(buf, static_cast<int>(end - static_cast<size_t>(buf->buflen)))) {
        return nullptr;
    }
    return blobmsg_data(blob_next(buf->head));
}

void blobmsg_add_string_buffer(blob_buf *buf)
{
    blob_attr *attr = blob_next(buf->head);
    const auto *text = static_cast<char *>(blobmsg_data(attr));
    const auto before = static_cast<size_t>(text - reinterpret_cast<char *>(attr));

    blob_set_raw_len(attr, static_cast<unsigned int>(before + strlen(text) + 1));
    blob_fill_pad(attr);
    blob_set_raw_len(buf->head, static_cast<unsigned int>(blob_pad_len(buf->head) + blob_pad_len(attr)));
}

int blobmsg_vprintf(blob_buf *buf, const char *name, const char *format, va_list arg)
{
    va_list again;
    va_copy(again, arg);
    const int len = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (len < 0) {
        return -1;
    }
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(buf, name, static_cast<unsigned int>(len)));
    if (text == nullptr) {
        return -1;
    }
    vsnprintf(text, static_cast<size_t>(len) + 1, format, arg);
    blobmsg_add_string_buffer(buf);
    return len;
}

int blobmsg_printf(blob_buf *buf, const char *name, const char *format, ...)
{
    va_list arg;
    va_start(arg, format);
    const int len = blobmsg_vprintf(buf, name, format, arg);
    va_end(arg);
    return len;
}
