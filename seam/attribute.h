// An attribute of a bus message as its bytes say it, at any place of memory, well formed or not.
#pragma once

#include <cstddef>

namespace seam {

struct Attribute {
    size_t length; // with its head
    unsigned type;
    const char *name; // null: none
    size_t head;      // bytes before its value

    size_t padded() const { return (length + 3) / 4 * 4; }
};

constexpr size_t least_head = 4;

// False for one that does not fit: any length may lie.
inline bool read_attribute(const char *data, size_t room, Attribute *attribute)
{
    const auto byte = [&](size_t at) { return static_cast<unsigned>(static_cast<unsigned char>(data[at])); };
    if (room < least_head) {
        return false;
    }
    const bool is_named = (byte(0) & 0x80) != 0;
    *attribute = {byte(1) << 16 | byte(2) << 8 | byte(3), byte(0) & 0x7f, nullptr, least_head};
    if (attribute->length < least_head || attribute->length > room) {
        return false;
    }
    if (!is_named) {
        return true;
    }
    if (attribute->length < least_head + 2) {
        return false;
    }
    const size_t name_length = byte(4) << 8 | byte(5);
    attribute->name = data + least_head + 2;
    attribute->head += (2 + name_length + 1 + 3) / 4 * 4;
    return attribute->head <= attribute->length && attribute->name[name_length] == '\0';
}

} // namespace seam
