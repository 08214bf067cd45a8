// The file of a recording. Numbers are little-endian, whatever the processor.
//
//   head      magic, version, size of the file, when it begins, flags, their check; zeros; the marks
//   start     records from first_record on, kept for good
//   ring      the records since then, the latest of them
//
// A mark is a place in the file, in units of 8 bytes, with a check in its lowest byte: one word, so that a
// kill never leaves half of it. `start_end` is 0 while the start runs, else where the ring begins; the ring
// is read from `tail` to `end`; `lost` is 0 until a record of the ring has been overwritten. A record that
// does not fit before the file's end stands at the ring's beginning, and a record of kind `wrap`, or too
// little room for one, in its place.
//
// A record is its header, then values, each a tag with what it says, and zeros up to the next unit. What
// stands behind the tag `result` came back from the call; what stands behind `hidden` is no part of its line.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace seam::format {

constexpr char magic[16] = "ivarode-record\n";
constexpr uint32_t version = 1;

// Places in the head.
constexpr size_t at_version = 16;
constexpr size_t at_size = 20;
constexpr size_t at_begin = 24; // microseconds since 1970, 64 bits
constexpr size_t at_flags = 32;
constexpr size_t at_check = 36; // of what stands before it
constexpr size_t at_zeros = 40;
constexpr size_t at_start_end = 64;
constexpr size_t at_tail = 68;
constexpr size_t at_end = 72;
constexpr size_t at_lost = 76;
constexpr size_t first_record = 80;

constexpr uint32_t flag_secrets = 1; // nothing is masked

constexpr size_t unit = 8;
constexpr size_t least_size = 65536;
constexpr size_t largest_size = 64U << 20;
// A longer text or message is left out, and says so.
constexpr size_t longest_value = 60000;

enum class Kind : uint8_t {
    wrap = 1,
    call,     // [prefix] name, arguments, result, out
    say,      // name, arguments, hidden
    walk,     // package, type: a walk over sections begins
    section,  // name
    walk_end, // result
    option,   // section, option, value, hidden: 1 for one that is not configured
    request,  // object, method, message
    status,   // number
    link,     // port, link
    address,  // interface index, address
    timer,    //
    returned, // number
    debug,    // the debug word
    file,     // name, content
    left_out, // how many questions and samples
    over,     // the process ends in order
};

enum class Tag : uint8_t {
    end = 0,
    null,
    text,      // 16-bit length, bytes
    word,      // the same: stands in a line without quotes
    prefix,    // the same: stands before the name
    message,   // the same: a bus message with its head
    number,    // 64 bits
    hex,       // digits in 8 bits, 32 bits
    mac,       // 6 bytes
    long_text, // 32-bit length of a text that is left out
    result,
    hidden,
};

// What a record begins with: size in bytes and kind in one word, the check of all words but itself,
// microseconds since the recording's begin.
constexpr size_t header_size = 16;

constexpr uint32_t little(uint32_t number)
{
    if constexpr (std::endian::native == std::endian::little) {
        return number;
    } else {
        return __builtin_bswap32(number);
    }
}

inline uint32_t load(const uint8_t *at)
{
    uint32_t number = 0;
    std::memcpy(&number, at, sizeof(number));
    return little(number);
}

inline void store(uint8_t *at, uint32_t number)
{
    number = little(number);
    std::memcpy(at, &number, sizeof(number));
}

inline uint64_t load64(const uint8_t *at)
{
    return load(at) | static_cast<uint64_t>(load(at + 4)) << 32;
}

inline void store64(uint8_t *at, uint64_t number)
{
    store(at, static_cast<uint32_t>(number));
    store(at + 4, static_cast<uint32_t>(number >> 32));
}

// Of whole words. Each step can be undone, so a change within one word always shows.
inline uint32_t check_of(const uint8_t *bytes, size_t size, uint32_t check = 0x811c9dc5)
{
    for (size_t at = 0; at < size; at += 4) {
        check = (check ^ load(bytes + at)) * 0x01000193;
    }
    return check;
}

// Of a record, its own word left out.
inline uint32_t record_check(const uint8_t *record, size_t size)
{
    return check_of(record + 8, size - 8, check_of(record, 4));
}

constexpr uint32_t fold(uint32_t units)
{
    return (units ^ units >> 8 ^ units >> 16 ^ 0x5a) & 0xff;
}

constexpr uint32_t mark_of(size_t place)
{
    const auto units = static_cast<uint32_t>(place / unit);
    return units << 8 | fold(units);
}

constexpr bool is_mark(uint32_t mark)
{
    return (mark & 0xff) == fold(mark >> 8);
}

constexpr size_t place_of(uint32_t mark)
{
    return (mark >> 8) * unit;
}

constexpr size_t padded(size_t size)
{
    return (size + unit - 1) / unit * unit;
}

} // namespace seam::format
