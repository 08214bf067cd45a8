// Listings of iptables, and the view that the library keeps of them: whatever is listed and whatever is done,
// each answer is that of the tables as they are.
//
// Instead of the program there is a small model of it, which takes changes from a stream, too. An input is a
// listing of the table "nat" with the library's calls between its lines:
//   !new TABLE CHAIN     !append TABLE CHAIN RULE     !flush TABLE CHAIN     !line IPTABLES-COMMAND
//   !fail STATUS         the next command fails
//   !lose HOW            the next answer of the stream is lost: 1 before the change is made, 2 after it
#include "command.h"
#include "input.h"
#include "iptables_stream.h"
#include "platform/command.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using fuzz::promise;
using Lines = std::vector<std::string>;

std::map<std::string, Lines> tables; // as "-S" lists them
int failing = 0;
int losing = 0;

bool possible_word(const std::string &word)
{
    return !word.empty() && word.find_first_of(" \t\r\n\"'\\") == word.npos;
}

// Whether a line is about this chain.
bool about(const std::string &line, const std::string &option, const std::string &chain)
{
    const std::string begin = option + " " + chain;
    return line.compare(0, begin.size(), begin) == 0 &&
           (line.size() == begin.size() || line[begin.size()] == ' ');
}

bool has_chain(const std::string &table, const std::string &chain)
{
    for (const std::string &line : tables[table]) {
        if (about(line, "-N", chain) || about(line, "-P", chain)) {
            return true;
        }
    }
    return false;
}

bool has_rule(const std::string &table, const std::string &chain, const std::string &text)
{
    for (const std::string &line : tables[table]) {
        if (about(line, "-A", chain) && line.substr(3 + chain.size()).find(text) != line.npos) {
            return true;
        }
    }
    return false;
}

size_t count_rules()
{
    size_t count = 0;
    for (const auto &[name, lines] : tables) {
        count += static_cast<size_t>(std::count_if(lines.begin(), lines.end(),
                                                   [](const auto &line) { return line.starts_with("-A"); }));
    }
    return count;
}

// What the program does: 0, or the status it ends with.
int iptables(const libsys::argument_list &words, std::string &listing)
{
    std::string table = "filter";
    Lines rest;
    for (size_t i = 1; i < words.count(); i++) {
        const std::string word = words[i];
        if (!possible_word(word)) {
            return 2;
        }
        if ((word == "-t" || word == "--table") && i + 1 < words.count()) {
            table = words[++i];
        } else if (word.compare(0, 2, "-t") == 0 && word.size() > 2) {
            table = word.substr(2);
        } else if (word.compare(0, 8, "--table=") == 0) {
            table = word.substr(8);
        } else if (word != "-w" && word != "--wait") {
            rest.push_back(word);
        }
    }
    if (tables.find(table) == tables.end() || rest.empty()) {
        return 2;
    }
    Lines &lines = tables[table];
    if (rest[0] == "-S" && rest.size() == 1) {
        for (const std::string &line : lines) {
            listing += line + "\n";
        }
        return 0;
    }
    if (rest.size() < 2 || (rest[0] != "-N" && rest[0] != "-A" && rest[0] != "-F" && rest[0] != "-X") ||
        rest[1][0] == '-') {
        return 2;
    }
    const std::string &chain = rest[1];
    if (rest[0] != "-A" && rest.size() != 2) {
        return 2;
    }
    if ((rest[0] == "-N") == has_chain(table, chain)) {
        return 1;
    }
    if (rest[0] == "-N") {
        lines.push_back("-N " + chain);
    } else if (rest[0] == "-A") {
        std::string line = "-A " + chain;
        // Matches come back in other words than they were given in.
        for (size_t i = 2; i < rest.size(); i++) {
            line += rest[i] == "--dport" ? " -m tcp --dport" : " " + rest[i];
        }
        lines.push_back(line);
    } else {
        std::erase_if(lines, [&](const std::string &line) {
            return about(line, "-A", chain) || (rest[0] == "-X" && about(line, "-N", chain));
        });
    }
    return 0;
}

void check(const std::string &table, const std::string &chain, const std::string &text)
{
    if (chain.empty() || chain[0] == '-' || chain[0] == '!') {
        return;
    }
    promise((iptlib_chain_is_exist(table.c_str(), chain.c_str()) != 0) == has_chain(table, chain),
            "a chain is there when it is listed");
    if (!text.empty()) {
        promise((iptlib_rule_is_exist(table.c_str(), chain.c_str(), text.c_str()) != 0) ==
                    has_rule(table, chain, text),
                "a rule is there when it is listed");
    }
}

void apply(std::string_view call)
{
    fuzz::Input words(call);
    const std::string_view kind = words.until(' ');
    if (kind == "fail") {
        failing = words.u8() % 5;
        return;
    }
    if (kind == "lose") {
        losing = words.u8() % 3;
        return;
    }
    if (kind == "line") {
        const std::string line{words.rest()};
        cmdlib_do_iptables_cmd("%s", line.c_str());
        return;
    }
    const std::string table{words.until(' ')};
    const std::string chain{words.until(' ')};
    const std::string rule{words.rest()};
    if (kind == "new") {
        iptlib_chain_new(table.c_str(), chain.c_str());
    } else if (kind == "append") {
        const size_t before = count_rules();
        const bool made = iptlib_rule_append(table.c_str(), chain.c_str(), rule.c_str()) == 0;
        promise(count_rules() == before + (made ? 1 : 0), "a rule is appended once, or not at all");
    } else if (kind == "flush") {
        iptlib_rules_flush(table.c_str(), chain.c_str());
    }
    failing = 0; // to a listing that fails no answer is promised
    for (const char *known : {"filter", "nat"}) {
        check(known, chain, rule);
    }
}

} // namespace

extern "C" {

int __wrap__ZN6libsys3runERKNS_13argument_listENS_7captureEPNS_4textEPi(const libsys::argument_list &words,
                                                                        libsys::capture, libsys::text *into,
                                                                        int *status)
{
    std::string output;
    *status = failing != 0 ? failing : iptables(words, output);
    failing = 0;
    into->append(output);
    return into->ok() ? 0 : ENOMEM;
}

bool __wrap__ZN6libsys12stream_takesEPKcRKNS_13argument_listEm(const char *, const libsys::argument_list &,
                                                               size_t)
{
    return failing == 0;
}

// A refused change is left to a command, and so is one whose words name a table again.
libsys::change __wrap__ZN6libsys13stream_changeEPKcRKNS_13argument_listEm(const char *table,
                                                                          const libsys::argument_list &words,
                                                                          size_t first)
{
    libsys::argument_list command;
    for (const char *word : {"iptables", "-t", table}) {
        promise(command.add(word) == 0, "memory is there");
    }
    for (size_t i = first; i < words.count(); i++) {
        const std::string_view word = words[i];
        promise(!word.starts_with("-t") && word != "--table" && !word.starts_with("--table="),
                "a stream has its table");
        promise(command.add(words[i]) == 0, "memory is there");
    }
    const int lost = losing;
    losing = 0;
    std::string output;
    if (lost == 1) {
        return libsys::change::unknown;
    }
    if (iptables(command, output) != 0) {
        return libsys::change::refused;
    }
    return lost == 2 ? libsys::change::unknown : libsys::change::made;
}

bool __wrap__ZN6libsys11stream_listEPKcPNS_4textE(const char *table, libsys::text *into)
{
    if (failing != 0 || tables.find(table) == tables.end()) {
        return false;
    }
    std::string listing;
    for (const std::string &line : tables[table]) {
        listing += line + "\n";
    }
    into->append(listing);
    return into->ok();
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    std::vector<std::string> calls;
    tables = {{"filter", {"-P INPUT ACCEPT", "-P FORWARD ACCEPT"}}, {"nat", {}}};
    failing = 0;
    losing = 0;
    while (!input.empty()) {
        std::string_view line = input.until('\n');
        line = line.substr(0, line.find('\0'));
        if (!line.empty() && line[0] == '!') {
            calls.emplace_back(line.substr(1));
        } else if (!line.empty()) {
            tables["nat"].emplace_back(line);
        }
    }
    // A command that the view does not follow makes it forget what it knew from the input before.
    cmdlib_do_iptables_cmd("iptables -X gone");
    for (const char *chain : {"INPUT", "POSTROUTING", "lan", "wan"}) {
        check("nat", chain, "-j MASQUERADE");
    }
    for (const std::string &call : calls) {
        apply(call);
    }
    return 0;
}

} // extern "C"
