// The answers of the real `uci` to 3,570 commands on 210 configurations, byte for byte.
//
// The files in answers/ hold cases: what lies on the disk, then what is answered, one line each, its fields
// separated by tabs, with escapes as in C.
//
//     file TEXT                        of the package "p"; several: each is answered alike; none: as in the
//                                      case before
//     saved TEXT                       changes that are saved; several: each is answered alike
//     differs REASON                   it is refused here
//     COMMANDS STATUS [OUT [ERR]]      a letter for each command, see below
#include "fixture.h"
#include "tool.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace {

struct Command {
    char letter;
    std::vector<std::string> words;
};

const std::vector<Command> commands = {
    {'s', {"show", "p"}},         {'x', {"-X", "show", "p"}},
    {'n', {"-n", "show", "p"}},   {'d', {"-d", "|", "show", "p"}},
    {'S', {"-S", "show", "p"}},   {'e', {"export", "p"}},
    {'E', {"-X", "export", "p"}}, {'t', {"get", "p.a"}},
    {'v', {"get", "p.a.x"}},      {'l', {"get", "p.a.l"}},
    {'T', {"get", "p.@t[0]"}},    {'V', {"get", "p.@t[-1].x"}},
    {'m', {"get", "p.nosuch"}},   {'a', {"show", "p.a"}},
    {'o', {"show", "p.a.x"}},     {'f', {"show", "p.@t[0]"}},
    {'g', {"show", "p.@t[5]"}},
};

struct Case {
    int line = 0; // where it ends
    std::vector<std::string> files;
    std::vector<std::string> saved;
    bool differs = false;
    std::map<char, Finished> answers; // by the command's letter
};

std::string unescaped(const std::string &text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\') {
            plain += text[i];
            continue;
        }
        switch (const char c = text.at(++i)) {
        case 'n':
            plain += '\n';
            break;
        case 't':
            plain += '\t';
            break;
        case 'r':
            plain += '\r';
            break;
        case 'x':
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
            break;
        default:
            plain += c;
        }
    }
    return plain;
}

std::vector<std::string> fields_of(const std::string &line)
{
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, '\t');) {
        fields.push_back(unescaped(field));
    }
    fields.resize(4);
    return fields;
}

std::vector<Case> cases_in(const std::string &path)
{
    std::vector<Case> cases;
    std::ifstream stream(path);
    EXPECT_TRUE(stream) << path;
    Case next;
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        number++;
        const std::vector<std::string> fields = fields_of(line);
        if (fields[0] == "file") {
            next.files.push_back(fields[1]);
        } else if (fields[0] == "saved") {
            next.saved.push_back(fields[1]);
        } else if (fields[0] == "differs") {
            next.differs = true;
        } else if (line.empty() || line[0] == '#') {
            continue;
        } else {
            for (const char letter : fields[0]) {
                next.answers[letter] = {std::stoi(fields[1]), fields[2], fields[3]};
            }
        }
        if (next.answers.size() == commands.size()) {
            if (next.files.empty() && !cases.empty()) {
                next.files = cases.back().files;
            }
            next.line = number;
            cases.push_back(std::exchange(next, {}));
        }
    }
    EXPECT_TRUE(next.answers.empty()) << path << ": the last case lacks an answer";
    return cases;
}

class Answers : public UciTest, public testing::WithParamInterface<const char *> {
protected:
    void try_commands(const Case &expected, const std::string &input)
    {
        for (const Command &command : commands) {
            std::vector<std::string> words = {"-c", path("config"), "-C", path("override"),
                                              "-t", path("saved")};
            words.insert(words.end(), command.words.begin(), command.words.end());
            const Finished done = run_tool(path("."), words);
            const Finished &real = expected.answers.at(command.letter);
            if (expected.differs) {
                EXPECT_EQ(command.letter == 'S' ? 0 : 1, done.status);
                continue;
            }
            const std::string where = "case that ends at line " + std::to_string(expected.line) +
                                      ", command '" + command.letter + "', on\n" + input;
            EXPECT_EQ(real.status, done.status) << where;
            EXPECT_EQ(real.out, done.out) << where;
            EXPECT_EQ(real.err, done.err) << where;
        }
    }
};

TEST_P(Answers, AreThoseOfTheRealTool)
{
    const std::vector<Case> cases = cases_in(std::string(UCI_ANSWERS) + GetParam() + ".txt");
    EXPECT_FALSE(cases.empty());
    for (const Case &expected : cases) {
        for (const std::string &text : expected.files) {
            write("config/p", text);
            std::filesystem::remove(path("saved/p"));
            if (expected.saved.empty()) {
                try_commands(expected, text);
            }
            for (const std::string &changes : expected.saved) {
                write("saved/p", changes);
                try_commands(expected, changes);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, Answers, testing::Values("grammar", "saved-changes", "noise"),
                         [](const auto &named) {
                             const std::string name = named.param;
                             return name.substr(0, name.find('-'));
                         });

} // namespace
