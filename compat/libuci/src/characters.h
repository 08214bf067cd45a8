/*
 * What a character of configuration text is, whatever the locale that the program around us may have set.
 */
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace uci {

enum trait : uint8_t {
    blank = 1,
    ends_word = 2, // outside of quotes
    // Stops a run of characters that stand for themselves: outside of quotes, within single and double ones.
    stops_bare = 4,
    stops_single = 8,
    stops_double = 16,
    in_name = 32, // of a section or an option
    in_package_name = 64,
    in_type = 128,
};

constexpr std::array<uint8_t, 256> make_traits()
{
    std::array<uint8_t, 256> traits = {};
    auto add = [&](std::string_view characters, int more) {
        for (const char c : characters) {
            auto &known = traits[static_cast<unsigned char>(c)];
            known = static_cast<uint8_t>(known | more);
        }
    };
    add(" \t\r\v\f\n", blank | ends_word | stops_bare);
    add(";#", ends_word | stops_bare);
    // A line is counted where it ends.
    add("\n", stops_single | stops_double);
    add("\"\\", stops_bare | stops_double);
    add("'", stops_bare | stops_single);
    // Wrong in any word; behind the text it keeps a run from leaving it.
    add({"\0", 1}, stops_bare | stops_single | stops_double);
    add("0123456789_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", in_name | in_package_name);
    add("-", in_package_name);
    for (char c = '!'; c <= '~'; c++) {
        add({&c, 1}, in_type);
    }
    return traits;
}

inline constexpr std::array<uint8_t, 256> traits_of_all = make_traits();

inline bool has(char c, uint8_t wanted)
{
    return traits_of_all[static_cast<unsigned char>(c)] & wanted;
}

} // namespace uci
