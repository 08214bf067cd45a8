#include "script.h"

#include "call.h"
#include "process.h"

#include <cstdlib>

namespace seam {
namespace {

std::string unescaped(const std::string &text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        if (c == 'x') {
            out += static_cast<char>(std::strtoul(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
        }
    }
    return out;
}

void set_port(const ScriptLine &line)
{
    world.ports[line.number(1) % world.ports.size()] = {static_cast<uint8_t>(line.number(2)),
                                                        static_cast<uint8_t>(line.number(3))};
}

bool state_configuration(const ScriptLine &line)
{
    const std::string &word = line.word();
    if (word == "package") {
        world.packages.insert(line[1]);
    } else if (word == "section") {
        world.sections.push_back({line[1], line[2], line[3], {}});
    } else if (word == "option") {
        world.sections.back().options.emplace_back(line[1], line[2]);
    } else {
        return false;
    }
    return true;
}

bool state_board(const ScriptLine &line)
{
    const std::string &word = line.word();
    if (word == "mac") {
        mac_of(line[1], world.mac.data());
    } else if (word == "cpu") {
        world.cpu = line.number(1);
    } else if (word == "port") {
        set_port(line);
    } else if (word == "ports") {
        for (size_t i = 0; i < world.hardware.port_words.size(); i++) {
            world.hardware.port_words[i] = line.number(i + 1);
        }
    } else if (word == "time") {
        world.time = line[1];
    } else if (word == "netdev") {
        world.net_dev = line[1];
    } else if (word == "netdev-unreadable") {
        world.net_dev.reset();
    } else if (word == "debug") {
        debug_words()[0] = line.number(1);
    } else {
        return false;
    }
    return true;
}

} // namespace

const std::string &ScriptLine::operator[](size_t index) const
{
    static const std::string none;
    return index < fields_.size() ? fields_[index] : none;
}

uint32_t ScriptLine::number(size_t index) const
{
    return static_cast<uint32_t>(std::strtoul((*this)[index].c_str(), nullptr, 0));
}

std::vector<ScriptLine> script_read(const std::string &path)
{
    std::vector<ScriptLine> script;
    std::vector<std::string> fields;
    std::string field;
    for (const char c : file_text(path).value_or("")) {
        if (c != '\t' && c != '\n') {
            field += c;
            continue;
        }
        fields.push_back(unescaped(field));
        field.clear();
        if (c == '\n') {
            script.emplace_back(std::move(fields));
            fields = {};
        }
    }
    return script;
}

bool state(const ScriptLine &line)
{
    const std::string &word = line.word();
    if (word == "fact") {
        return state_fact(line[1]);
    }
    if (word == "load") {
        load(line[1]);
    } else if (word == "save") {
        save_to(line[1]);
    } else {
        return state_board(line) || state_configuration(line);
    }
    return true;
}

bool steer(const ScriptLine &line)
{
    const std::string &word = line.word();
    if (word == "trace") {
        trace_to_file(line[1], line[2] == "sites");
    } else if (word == "limit") {
        trace_limit(line.number(1));
    } else if (word == "quiet") {
        trace_quiet(line[1] != "off");
    } else if (word == "show-safe") {
        shown.safe_strings = true;
    } else if (word == "show-options") {
        shown.options = true;
    } else if (word == "result") {
        demand(line.number(1), line[2], std::strtol(line[3].c_str(), nullptr, 0), line[4]);
    } else if (word == "forget") {
        demand_nothing();
    } else if (word == "kill-at") {
        kill_at(line.number(1));
    } else if (word == "fail-at") {
        fail_at(line.number(1));
    } else {
        return false;
    }
    return true;
}

} // namespace seam
