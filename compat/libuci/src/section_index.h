// The sections of a package by name, while its file is read or written: that takes the time of its length,
// not of its square.
#pragma once

#include "internal.h"

#include <cstddef>
#include <cstdlib>

namespace uci {

class section_index {
public:
    section_index() = default;
    section_index(const section_index &) = delete;
    section_index &operator=(const section_index &) = delete;
    ~section_index() { free(places_); }

    // Null when there is none of this name.
    uci_section *find(const char *name) const;
    // False without memory. The section stays its package's and must outlive the index. Of several with one
    // name the first is found.
    bool add(uci_section *section);

private:
    struct place {
        uci_section *section; // null while it is empty
    };

    size_t place_of(const char *name) const;
    bool grow();

    place *places_ = nullptr; // a power of two of them, a quarter at least empty
    size_t capacity_ = 0;
    size_t used_ = 0;
};

} // namespace uci
