// Arguments of the platform's functions that are more than a text or a number: what an argument is, its type
// says, whichever way stands behind the function. Those that end in Out are filled by the call.
#pragma once

#include <cstdint>

namespace seam {

struct Hex {
    uint32_t value;
    int digits = 0;
};

struct MacIn {
    const uint8_t *bytes;
};

// A text that others must not read.
struct Secret {
    const char *text;
};

struct HexOut {
    uint32_t *at;
    int digits = 8;
};

struct NumberOut {
    int *at;
};

struct MacOut {
    uint8_t *at;
};

struct TextOut {
    char *at;
    int room_bytes;
};

} // namespace seam
