#include "script.h"

#include "call.h"
#include "message.h"
#include "model.h"
#include "steps.h"
#include "trace.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace recorder {

Scenario scenario;

namespace {

std::vector<std::vector<std::string>> lines;
size_t next_line = 0;
std::string save_path;

std::string unescape(const std::string &text)
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

void read_script(const char *path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    std::string text;
    char block[4096];
    for (ssize_t n = 0; fd >= 0 && (n = read(fd, block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(n));
    }
    syscall(SYS_close, fd);
    std::vector<std::string> fields;
    std::string field;
    for (const char c : text) {
        if (c == '\t' || c == '\n') {
            fields.push_back(unescape(field));
            field.clear();
            if (c == '\n') {
                lines.push_back(fields);
                fields.clear();
            }
        } else {
            field += c;
        }
    }
}

const std::string &field(const std::vector<std::string> &line, size_t index)
{
    static const std::string none;
    return index < line.size() ? line[index] : none;
}

uint32_t number(const std::vector<std::string> &line, size_t index)
{
    return static_cast<uint32_t>(std::strtoul(field(line, index).c_str(), nullptr, 0));
}

void set_mac(const std::string &text)
{
    std::sscanf(text.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &scenario.mac[0], &scenario.mac[1],
                &scenario.mac[2], &scenario.mac[3], &scenario.mac[4], &scenario.mac[5]);
}

void set_port(const std::vector<std::string> &line)
{
    BoardPort &port = scenario.ports[number(line, 1) % scenario.ports.size()];
    port.present = true;
    port.ether.role = static_cast<uint8_t>(number(line, 2));
    port.ether.hw_port = static_cast<uint8_t>(number(line, 3));
}

// What a scenario states rather than does; false when the word is not one of these.
bool state(const std::vector<std::string> &line)
{
    const std::string &word = line[0];
    if (word == "mac") {
        set_mac(field(line, 1));
    } else if (word == "cpu") {
        scenario.cpu = number(line, 1);
    } else if (word == "port") {
        set_port(line);
    } else if (word == "package") {
        scenario.packages.push_back(field(line, 1));
    } else if (word == "section") {
        scenario.sections.push_back({field(line, 1), field(line, 2), field(line, 3), {}});
    } else if (word == "option") {
        scenario.sections.back().options.push_back({field(line, 1), field(line, 2)});
    } else if (word == "ports") {
        for (size_t i = 0; i < scenario.port_words.size(); i++) {
            scenario.port_words[i] = number(line, i + 1);
        }
    } else if (word == "time") {
        scenario.time = field(line, 1);
    } else if (word == "netdev") {
        scenario.net_dev = field(line, 1);
        scenario.net_dev_readable = true;
    } else if (word == "netdev-unreadable") {
        scenario.net_dev_readable = false;
    } else if (word == "debug") {
        debug_words()[0] = number(line, 1);
    } else if (word == "fact") {
        model.state(field(line, 1));
    } else if (word == "load") {
        model.load(field(line, 1));
    } else if (word == "save") {
        save_path = field(line, 1);
    } else {
        return false;
    }
    return true;
}

// What steers the recorder itself; false when the word is not one of these.
bool steer(const std::vector<std::string> &line)
{
    const std::string &word = line[0];
    if (word == "trace") {
        trace_open(field(line, 1), field(line, 2) == "sites");
    } else if (word == "limit") {
        trace_limit(number(line, 1));
    } else if (word == "quiet") {
        trace_quiet(field(line, 1) != "off");
    } else if (word == "show-safe") {
        scenario.show_safe = true;
    } else if (word == "show-options") {
        scenario.show_options = true;
    } else if (word == "result") {
        demand(number(line, 1), field(line, 2), std::strtol(field(line, 3).c_str(), nullptr, 0),
               field(line, 4));
    } else if (word == "forget") {
        demand_nothing();
    } else if (word == "kill-at") {
        kill_at(number(line, 1));
    } else if (word == "fail-at") {
        fail_at(number(line, 1));
    } else {
        return false;
    }
    return true;
}

[[noreturn]] void unknown_word(const std::string &word)
{
    trace_line("script error: " + word);
    _exit(98);
}

void begin()
{
    const char *path = std::getenv("IVARODE_SCRIPT");
    if (path == nullptr) {
        return;
    }
    scenario.scripted = true;
    read_script(path);
    model.set("device eth0", "port");
    while (next_line < lines.size()) {
        const std::vector<std::string> &line = lines[next_line++];
        if (line[0] == "loop") {
            break;
        }
        if (!state(line) && !steer(line)) {
            unknown_word(line[0]);
        }
    }
}

} // namespace

std::string register_key(uint32_t offset)
{
    return "switch " + hex(offset, 3);
}

void run_steps()
{
    while (next_line < lines.size()) {
        const std::vector<std::string> line = lines[next_line++];
        if (line[0] == "call") {
            Message message;
            while (next_line < lines.size() && lines[next_line][0] != ".") {
                const std::vector<std::string> &part = lines[next_line++];
                message.add(part[0], number(part, 1), field(part, 2), field(part, 3));
            }
            next_line++;
            call_method(field(line, 1), field(line, 2), message);
        } else if (!state(line) && !steer(line) && !step(line)) {
            unknown_word(line[0]);
        }
    }
}

void save_model()
{
    if (!save_path.empty()) {
        model.save(save_path);
    }
}

void finish()
{
    if (sockets_open() != 0 || files_open() != 0 || database_open()) {
        trace_line("leak: sockets=" + std::to_string(sockets_open()) +
                   " files=" + std::to_string(files_open()) + " databases=" + (database_open() ? "1" : "0"));
    }
    trace_line("counted actions=" + std::to_string(actions_counted()) +
               " fallible=" + std::to_string(fallible_counted()));
    save_model();
}

namespace {

// The last object of this library to be constructed (this file is linked last) and so the first to go.
struct Run {
    Run() { begin(); }
    ~Run()
    {
        if (scenario.scripted) {
            finish();
        }
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
} run;

} // namespace

} // namespace recorder
