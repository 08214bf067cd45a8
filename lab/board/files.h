#pragma once
// Small file work for building the board's private file system. All throw std::runtime_error with path and
// reason.

#include <string>
#include <string_view>

namespace lab {

void make_dirs(const std::string &path, unsigned mode = 0755);
void write_text(const std::string &path, std::string_view text, unsigned mode = 0644);
void append_text(const std::string &path, std::string_view text);
// Copies a file, link or whole folder (without devices); what is already there is replaced.
void copy_tree(const std::string &from, const std::string &to);
void copy_if_there(const std::string &from, const std::string &to);
// Writes a kernel setting below /proc/sys of the caller's network namespace; key with dots or slashes.
void write_setting(std::string key, std::string_view value);

} // namespace lab
