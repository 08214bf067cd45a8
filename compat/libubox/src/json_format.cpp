// Messages to JSON text.
#include "exported.h"

#include <cinttypes>
#include <cstdio>

namespace {

constexpr int max_tabs = 16;
// A message can nest deeper than any stack; containers below this depth print as empty.
constexpr int max_depth = 1000;

class json_writer {
public:
    json_writer(blobmsg_json_format_t callback, void *callback_priv, int indent)
        : format_(callback), priv_(callback_priv), pretty_(indent >= 0), level_(indent)
    {}
    ~json_writer() { free(text_); }
    json_writer(const json_writer &) = delete;
    json_writer &operator=(const json_writer &) = delete;

    void list(blob_attr *attr, bool array);
    void element(blob_attr *attr, bool with_name);
    char *take();

private:
    void raw(const char *text, size_t len);
    void raw(const char *text) { raw(text, strlen(text)); }
    void new_line();
    void quoted(const char *text);
    void value(blob_attr *attr);
    void scalar(blob_attr *attr);

    blobmsg_json_format_t format_;
    void *priv_;
    bool pretty_;
    int level_;
    int depth_ = 0;
    char *text_ = nullptr;
    size_t len_ = 0;
    size_t size_ = 0;
    bool failed_ = false;
};

void json_writer::raw(const char *text, size_t len)
{
    if (failed_) {
        return;
    }
    if (len_ + len + 1 > size_) {
        const size_t wanted = (len_ + len + 1) * 2;
        auto *grown = static_cast<char *>(realloc(text_, wanted));
        if (grown == nullptr) {
            failed_ = true;
            return;
        }
        text_ = grown;
        size_ = wanted;
    }
    memcpy(text_ + len_, text, len);
    len_ += len;
    text_[len_] = 0;
}

char *json_writer::take()
{
    raw("", 0);
    if (failed_) {
        return nullptr;
    }
    char *text = text_;
    text_ = nullptr;
    return text;
}

void json_writer::new_line()
{
    if (!pretty_) {
        return;
    }
    static const char line[] = "\n\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
    raw(line, 1 + static_cast<size_t>(level_ < max_tabs ? level_ : max_tabs));
}

void json_writer::quoted(const char *text)
{
    static const char hex[] = "0123456789abcdef";
    const char *plain = text;

    raw("\"");
    for (; *text; text++) {
        const auto byte = static_cast<unsigned char>(*text);
        char escape[] = "\\u0000";
        size_t len = 2;
        switch (byte) {
        case '\b':
            escape[1] = 'b';
            break;
        case '\n':
            escape[1] = 'n';
            break;
        case '\t':
            escape[1] = 't';
            break;
        case '\r':
            escape[1] = 'r';
            break;
        case '"':
        case '\\':
            escape[1] = *text;
            break;
        default:
            if (byte >= 0x20) {
                continue;
            }
            escape[4] = hex[byte >> 4];
            escape[5] = hex[byte & 15];
            len = 6;
        }
        raw(plain, static_cast<size_t>(text - plain));
        raw(escape, len);
        plain = text + 1;
    }
    raw(plain, static_cast<size_t>(text - plain));
    raw("\"");
}

void json_writer::scalar(blob_attr *attr)
{
    char number[400];

    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_UNSPEC:
        raw("null");
        return;
    case BLOBMSG_TYPE_STRING:
        quoted(blobmsg_get_string(attr));
        return;
    case BLOBMSG_TYPE_BOOL:
        raw(blobmsg_get_bool(attr) ? "true" : "false");
        return;
    case BLOBMSG_TYPE_DOUBLE:
        snprintf(number, sizeof(number), "%lf", blobmsg_get_double(attr));
        break;
    default:
        snprintf(number, sizeof(number), "%" PRId64, blobmsg_cast_s64(attr));
    }
    raw(number);
}

void json_writer::value(blob_attr *attr)
{
    if (format_ != nullptr) {
        if (const char *replacement = format_(priv_, attr)) {
            raw(replacement);
            return;
        }
    }
    const int type = blobmsg_type(attr);
    if (type == BLOBMSG_TYPE_ARRAY || type == BLOBMSG_TYPE_TABLE) {
        list(attr, type == BLOBMSG_TYPE_ARRAY);
    } else {
        scalar(attr);
    }
}

void json_writer::element(blob_attr *attr, bool with_name)
{
    // A plain attribute has neither a name nor a checked payload, so only its members can be shown.
    if (!blobmsg_check_attr(attr, false)) {
        return;
    }
    if (!blob_is_extended(attr)) {
        list(attr, false);
        return;
    }
    if (with_name && blobmsg_name(attr)[0]) {
        quoted(blobmsg_name(attr));
        raw(pretty_ ? ": " : ":");
    }
    value(attr);
}

void json_writer::list(blob_attr *attr, bool array)
{
    blob_attr *pos;
    size_t rem;
    bool first = true;

    raw(array ? "[" : "{");
    level_++;
    depth_++;
    new_line();
    if (depth_ <= max_depth) {
        blobmsg_for_each_attr(pos, attr, rem)
        {
            if (!first) {
                raw(",");
                new_line();
            }
            first = false;
            element(pos, !array);
        }
    }
    depth_--;
    level_--;
    new_line();
    raw(array ? "]" : "}");
}

} // namespace

char *blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent)
{
    json_writer writer(cb, priv, indent);
    if (list) {
        writer.list(attr, blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
    } else {
        writer.element(attr, true);
    }
    return writer.take();
}

char *blobmsg_format_json_value_with_cb(blob_attr *attr, blobmsg_json_format_t cb, void *priv, int indent)
{
    json_writer writer(cb, priv, indent);
    writer.element(attr, false);
    return writer.take();
}
