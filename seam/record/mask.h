// Passwords in what is recorded: every byte of theirs becomes a star, wherever they stand.
//
// They are known by the name of their field or option, and in the text of a list of options by the word
// before them. The latest are remembered, because one with a blank in it could not be told from what follows
// it. Lengths stay, since the daemon cuts texts by them.
#pragma once

#include <cstddef>

namespace seam::record {

// True for the name of a field or option that holds a password.
bool is_secret_name(const char *name);
void keep_secret(const char *text, size_t length);
// What follows the word "password" in a text.
void mask_text(char *text, size_t length);
// With its head, at any place of memory.
void mask_message(char *message, size_t length);
// The values of password options in a file of the configuration.
void mask_config(char *text, size_t length);

} // namespace seam::record
