// Texts and numbers as they stand in a trace.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace seam {

// A text in quotes with C escapes; a null pointer is null.
std::string quote(std::string_view text);
std::string quote(const char *text);
// A text without its escapes, and without its quotes where it has some.
std::string unescaped(std::string_view text);
std::string unquoted(std::string_view text);
// A null pointer as the empty text.
std::string plain(const char *text);
std::string hex(uint32_t value, int digits = 0);
// A null pointer is null.
std::string mac_text(const uint8_t *mac);
// The six bytes of a MAC; false for another text.
bool mac_of(const std::string &text, uint8_t *mac);
std::string formatted(const char *fmt, va_list args);
// What stands between blanks.
std::vector<std::string> words(const std::string &text);
// What stands between separators; a text without any is one part.
std::vector<std::string> parts(const std::string &text, const std::string &between);
// The content of a file, past the seams; nothing for one that cannot be opened.
std::optional<std::string> file_text(const std::string &path);

} // namespace seam
