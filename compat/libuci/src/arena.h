/*
 * Memory that is given back as a whole. All zero is an arena that holds nothing yet.
 */
#pragma once

#include <cstddef>

namespace uci {

class arena {
public:
    // Not initialised, aligned for pointers. Null without memory.
    void *take(size_t size);
    char *copy(const char *text);
    // Takes over what malloc gave; false, and it stays the caller's, without memory.
    bool adopt(void *block);
    // Everything is gone, and the arena is empty.
    void release();

private:
    struct held {
        held *next;
        void *block;
    };

    bool grow(size_t size);

    char *next_; // the rest of the newest block
    size_t left_;
    held *held_; // every block; each entry lies in one of them
};

} // namespace uci
