// Command lines. The words of a line, written down again in quotes, are read as the same words; and a list of
// words keeps what it is given.
#include "command.h"

#include "input.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

Words words_of(const libsys::argument_list &list)
{
    Words words;
    for (size_t i = 0; i < list.count(); i++) {
        fuzz::promise(list.argv()[i] == list[i], "argv holds the words");
        words.emplace_back(list[i]);
    }
    fuzz::promise(list.argv()[list.count()] == nullptr, "argv ends with a null pointer");
    return words;
}

std::string in_double_quotes(const std::string &word)
{
    std::string out = "\"";
    for (const char c : word) {
        out += c == '"' || c == '\\' ? "\\" : "";
        out += c;
    }
    return out + '"';
}

std::string in_single_quotes(const std::string &word)
{
    std::string out = "'";
    for (const char c : word) {
        out += c == '\'' ? std::string{"'\"'\"'"} : std::string{c};
    }
    return out + "'";
}

void check_round_trip(const Words &words, std::string (*quote)(const std::string &))
{
    std::string line;
    for (const std::string &word : words) {
        line += quote(word) + " \t";
    }
    libsys::argument_list list;
    fuzz::promise(list.add_words(line.c_str()) == 0, "a quoted line is a line");
    fuzz::promise(words_of(list) == words, "quoting and reading gives the same words");
}

// The line's words taken out and put back in places that the input chooses.
void check_places(Words words, fuzz::Input &input)
{
    libsys::argument_list list;
    for (const std::string &word : words) {
        fuzz::promise(list.add(word.c_str()) == 0, "there is memory");
    }
    while (!input.empty() && !words.empty()) {
        const uint8_t choice = input.u8();
        const size_t place = choice % words.size();
        if (choice >= 128) {
            list.remove(place);
            words.erase(words.begin() + static_cast<ptrdiff_t>(place));
        } else {
            fuzz::promise(list.insert(place, "inserted") == 0, "there is memory");
            words.insert(words.begin() + static_cast<ptrdiff_t>(place), "inserted");
        }
    }
    fuzz::promise(words_of(list) == words, "a list keeps what it is given");
    list.clear();
    fuzz::promise(list.count() == 0 && words_of(list).empty(), "a cleared list is empty");
}

} // namespace

// The line, then after a zero byte the places.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const std::string line{input.until('\0')};
    libsys::argument_list list;
    const int error = list.add_words(line.c_str());
    fuzz::promise(error == 0 || error == EINVAL, "a line is read or has an open quote");
    if (line.find_first_of("'\"") == line.npos) {
        fuzz::promise(error == 0, "a line without quotes is always read");
    }
    if (error == 0) {
        const Words words = words_of(list);
        check_round_trip(words, in_double_quotes);
        check_round_trip(words, in_single_quotes);
        check_places(words, input);
    }
    return 0;
}
