// The text of a secrets file, read and written as pppd does it: words between blanks; single or double quotes
// around what holds blanks or newlines; a backslash before a character that shall mean itself, or as in \n,
// \t, \s (a blank), \101 and \x41; "#" outside of quotes before a comment.
//
// An entry is one line; a backslash at the end of a line continues it, and at the end of the file means
// nothing.
#pragma once

#include "file.h"

namespace libsys {

// False for what cannot be written so that every pppd reads it back: control characters, or longer than its
// words.
bool secrets_word_possible(const char *word);

// Appends one entry with its newline; an empty address is left out.
void append_secret(text &out, const char *client, const char *server, const char *secret,
                   const char *address);

struct replaced_secrets {
    size_t found = 0;  // entries of the pair
    bool ended = true; // a line appended to the result is a separate entry
    bool open = false; // a quote is never closed: nothing appended would be seen
};

// Copies a file's content with the entry of client and server replaced by `entry` (empty: removed). Of
// several entries for the pair the first gets the replacement and the others go, so that none of them can win
// afterwards.
replaced_secrets replace_secret(std::string_view content, std::string_view client, std::string_view server,
                                std::string_view entry, text &out);

} // namespace libsys
