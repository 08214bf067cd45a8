#include "record/mask.h"

#include "attribute.h"

#include <cstring>
#include <libubox/blobmsg.h>

namespace seam::record {
namespace {

constexpr const char word[] = "password ";
constexpr size_t word_length = sizeof(word) - 1;
constexpr const char *names[] = {"password", "passwd", "secret"};
constexpr int deepest = 4;

// The latest secrets, cut.
constexpr size_t kept_count = 4;
constexpr size_t kept_length = 120;
struct Kept {
    size_t length;
    char text[kept_length];
};
Kept kept[kept_count] = {};
size_t next_kept = 0;

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n';
}

// The length of the secret that a text begins with: that of the longest one known, which may be cut by the
// text's end, or up to a blank.
size_t secret_length(const char *text, size_t length)
{
    size_t longest = 0;
    for (const Kept &one : kept) {
        const size_t compared = one.length < length ? one.length : length;
        if (compared > longest && memcmp(text, one.text, compared) == 0) {
            longest = compared;
        }
    }
    while (longest < length && !is_blank(text[longest])) {
        ++longest;
    }
    return longest;
}

// Most texts are short and have nothing to find in them: memmem would prepare more than it looks at.
char *find(char *text, size_t length, const char *wanted, size_t wanted_length)
{
    while (length >= wanted_length) {
        auto *at = static_cast<char *>(memchr(text, wanted[0], length - wanted_length + 1));
        if (at == nullptr || memcmp(at, wanted, wanted_length) == 0) {
            return at;
        }
        length -= static_cast<size_t>(at + 1 - text);
        text = at + 1;
    }
    return nullptr;
}

void mask_list(char *data, size_t length, int depth)
{
    Attribute attribute = {};
    while (read_attribute(data, length, &attribute)) {
        char *value = data + attribute.head;
        const size_t value_length = attribute.length - attribute.head;
        const bool is_list = attribute.type == BLOBMSG_TYPE_TABLE || attribute.type == BLOBMSG_TYPE_ARRAY;
        if (attribute.name != nullptr && is_secret_name(attribute.name)) {
            // The zero at the end of a text stays.
            const bool ends = value_length != 0 && value[value_length - 1] == '\0';
            const size_t masked = ends ? value_length - 1 : value_length;
            keep_secret(value, masked);
            memset(value, '*', masked);
        } else if (is_list && depth < deepest) {
            mask_list(value, value_length, depth + 1);
        } else if (attribute.type == BLOBMSG_TYPE_STRING) {
            mask_text(value, value_length);
        }
        if (attribute.padded() > length) {
            return;
        }
        data += attribute.padded();
        length -= attribute.padded();
    }
}

} // namespace

bool is_secret_name(const char *name)
{
    for (const char *known : names) {
        if (strstr(name, known) != nullptr) {
            return true;
        }
    }
    return false;
}

void keep_secret(const char *text, size_t length)
{
    Kept &place = kept[next_kept++ % kept_count];
    place.length = length < kept_length ? length : kept_length;
    memcpy(place.text, text, place.length);
}

void mask_text(char *text, size_t length)
{
    while (char *at = find(text, length, word, word_length)) {
        char *secret = at + word_length;
        length -= static_cast<size_t>(secret - text);
        const size_t masked = secret_length(secret, length);
        memset(secret, '*', masked);
        text = secret + masked;
        length -= masked;
    }
}

void mask_message(char *message, size_t length)
{
    if (length > least_head) {
        mask_list(message + least_head, length - least_head, 0);
    }
}

void mask_config(char *text, size_t length)
{
    char *const end = text + length;
    while (text < end) {
        auto *line_end = static_cast<char *>(memchr(text, '\n', static_cast<size_t>(end - text)));
        line_end = line_end == nullptr ? end : line_end;
        for (const char *known : names) {
            const size_t known_length = strlen(known);
            char *at = find(text, static_cast<size_t>(line_end - text), known, known_length);
            // The name's own rest and its quotes stay.
            while (at != nullptr && at < line_end && !is_blank(*at)) {
                ++at;
            }
            for (; at != nullptr && at < line_end; ++at) {
                *at = is_blank(*at) || *at == '\'' || *at == '"' ? *at : '*';
            }
        }
        text = line_end + 1;
    }
}

} // namespace seam::record
