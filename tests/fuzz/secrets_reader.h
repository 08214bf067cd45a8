// A reader of secrets files of its own, slow and plain, against which the library's is held.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

struct Secret {
    std::string raw; // with its newline
    std::vector<std::string> words;
    bool open = false; // ends inside the quote of its last word

    // A name that is never closed is none.
    bool names(std::string_view client, std::string_view server) const;
};

// Every byte of the text belongs to exactly one entry, in order.
std::vector<Secret> read_secrets(std::string_view text);

} // namespace fuzz
