// What a scenario sets up, and its steps. The script is one line for each word of command, tab-separated
// fields, with \t, \n, \\ and \xNN in them. Lines before "loop" run when the library is loaded, the others
// when the daemon enters its event loop.
//
//   IVARODE_SCRIPT  the script's file. Without it nothing is recorded and every call is the real one.

#include "call.h"
#include "events.h"
#include "message.h"
#include "process.h"

#include <algorithm>
#include <cstdlib>
#include <libubus.h>
#include <malloc.h>
#include <unistd.h>

namespace seam {
namespace {

class Line {
public:
    explicit Line(std::vector<std::string> fields) : fields_{std::move(fields)} {}
    // A field that is not there is empty, or 0; the first is the word.
    std::string operator[](size_t index) const { return index < fields_.size() ? fields_[index] : ""; }
    uint32_t number(size_t index) const
    {
        return static_cast<uint32_t>(std::strtoul((*this)[index].c_str(), nullptr, 0));
    }

private:
    std::vector<std::string> fields_;
};

std::vector<Line> script;
size_t next_line = 0;

[[noreturn]] void script_error(const std::string &text)
{
    trace_line("script error: " + text);
    _exit(98);
}

void read_script(const std::string &path)
{
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
}

// What is stated.

void state_port(const Line &line)
{
    world.ports[line.number(1) % world.ports.size()] = {static_cast<uint8_t>(line.number(2)),
                                                        static_cast<uint8_t>(line.number(3))};
}

void state_port_words(const Line &line)
{
    for (size_t i = 0; i < world.hardware.port_words.size(); ++i) {
        world.hardware.port_words[i] = line.number(i + 1);
    }
}

void state_known_fact(const Line &line)
{
    if (!state_fact(line[1])) {
        script_error("no kind of fact: " + line[1]);
    }
}

// Steps.

const char *type_name(int type)
{
    switch (type) {
    case BLOBMSG_TYPE_ARRAY:
        return "ARRAY";
    case BLOBMSG_TYPE_STRING:
        return "STRING";
    case BLOBMSG_TYPE_INT32:
        return "INT32";
    default:
        return "other";
    }
}

std::string method_text(const ubus_method &method)
{
    std::string out = std::string{"method "} + method.name + "(";
    for (int i = 0; i < method.n_policy; ++i) {
        out += (i == 0 ? "" : ", ") + std::string{method.policy[i].name} + ": " +
               type_name(static_cast<int>(method.policy[i].type));
    }
    return out + ")" + (method.mask == 0 ? "" : " mask") + (method.handler == nullptr ? " no handler" : "");
}

void show_objects()
{
    for (const ubus_object *object : process.objects) {
        const ubus_object_type *type = object->type;
        const bool same = type->methods == object->methods && type->n_methods == object->n_methods;
        trace_line("object " + std::string{object->name} + " type=" + type->name +
                   " id=" + std::to_string(object->id) + "/" + std::to_string(type->id) +
                   (same ? "" : " type and object differ"));
        for (int i = 0; i < object->n_methods; ++i) {
            trace_line(method_text(object->methods[i]));
        }
    }
}

void show_model(const Line &line)
{
    const std::string text = picture(line[1]);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin);
        trace_line(text.substr(begin, end - begin));
        begin = end + 1;
    }
}

// The lines of the message stand behind the call's, up to one that is a dot.
Message message_behind()
{
    Message message;
    for (; next_line < script.size() && script[next_line][0] != "."; ++next_line) {
        const Line &line = script[next_line];
        const int type = static_cast<int>(line.number(1));
        if (line[0] == "field") {
            message.field(line[2].c_str(), type, line[3]);
        } else if (line[0] == "open") {
            message.open(line[2].c_str(), type == BLOBMSG_TYPE_ARRAY);
        } else {
            message.close();
        }
    }
    ++next_line;
    return message;
}

void run_call(const Line &line)
{
    const Message message = message_behind();
    const std::optional<int> status = call_method(line[1], line[2], message);
    if (status) {
        trace_line("status " + std::to_string(*status));
    } else if (line[3] == "any") {
        const auto is_named = [&](const ubus_object *object) { return object->name == line[1]; };
        const bool known = std::any_of(process.objects.begin(), process.objects.end(), is_named);
        trace_line("status " + std::to_string(known ? UBUS_STATUS_METHOD_NOT_FOUND : UBUS_STATUS_NOT_FOUND));
    } else {
        script_error("no method " + line[1] + " " + line[2]);
    }
}

void demand_result(const Line &line)
{
    demand(line.number(1), line[2], std::strtol(line[3].c_str(), nullptr, 0), line[4]);
}

struct Command {
    const char *word;
    void (*run)(const Line &line);
};

constexpr Command commands[] = {
    // What there is.
    {"mac", [](const Line &line) { mac_of(line[1], world.mac.data()); }},
    {"cpu", [](const Line &line) { world.cpu = line.number(1); }},
    {"port", state_port},
    {"package", [](const Line &line) { world.packages.insert(line[1]); }},
    {"section",
     [](const Line &line) {
         world.sections.push_back({line[1], line[2], line[3], {}});
     }},
    {"option", [](const Line &line) { world.sections.back().options.emplace_back(line[1], line[2]); }},
    {"ports", state_port_words},
    {"time", [](const Line &line) { world.time = line[1]; }},
    {"netdev", [](const Line &line) { world.net_dev = line[1]; }},
    {"netdev-unreadable", [](const Line & /*line*/) { world.net_dev.reset(); }},
    {"debug", [](const Line &line) { debug_words()[0] = line.number(1); }},
    {"fact", state_known_fact},
    {"longest-name", [](const Line &line) { world.system.longest_name = line.number(1); }},
    {"check-gateways", [](const Line & /*line*/) { world.system.checks_gateways = true; }},
    {"load", [](const Line &line) { load(line[1]); }},
    {"save", [](const Line &line) { save_to(line[1]); }},
    // How it is recorded, and what is to happen.
    {"trace", [](const Line &line) { trace_to_file(line[1], line[2] == "sites"); }},
    {"limit", [](const Line &line) { trace_limit(line.number(1)); }},
    {"quiet", [](const Line &line) { trace_quiet(line[1] != "off"); }},
    {"show-safe", [](const Line & /*line*/) { shown.safe_strings = true; }},
    {"show-options", [](const Line & /*line*/) { shown.options = true; }},
    {"show-changes",
     [](const Line & /*line*/) {
         shown.changes = true;
         trace_changes();
     }},
    {"result", demand_result},
    {"forget", [](const Line & /*line*/) { demand_nothing(); }},
    {"kill-at", [](const Line &line) { kill_at(line.number(1)); }},
    {"fail-at", [](const Line &line) { fail_at(line.number(1)); }},
    // Steps.
    {"step",
     [](const Line &line) {
         trace_line("> " + line[1] + " fallible=" + std::to_string(fallible_counted()));
     }},
    {"call", run_call},
    {"link", [](const Line &line) { link_changes(line.number(1), line.number(2)); }},
    {"address", [](const Line &line) { address_comes(line.number(2), line.number(1)); }},
    {"timer", [](const Line & /*line*/) { timer_rings(); }},
    {"objects", [](const Line & /*line*/) { show_objects(); }},
    {"model", show_model},
    {"counter", [](const Line & /*line*/) { trace_line("counter " + std::to_string(debug_counter())); }},
    {"memory", [](const Line & /*line*/) { trace_line("memory " + std::to_string(mallinfo2().uordblks)); }},
};

// Runs the script up to its end or the line "loop".
void run_script()
{
    while (next_line < script.size()) {
        const Line &line = script[next_line++];
        if (line[0] == "loop") {
            return;
        }
        const auto *found = std::find_if(std::begin(commands), std::end(commands),
                                         [&](const Command &command) { return line[0] == command.word; });
        if (found == std::end(commands)) {
            script_error(line[0]);
        }
        found->run(line);
    }
}

// The last object of this library to be constructed (this file is linked last) and so the first to go.
struct Run {
    Run()
    {
        if (const char *path = std::getenv("IVARODE_SCRIPT"); path != nullptr) {
            running = true;
            watch_begin();
            event_loop = run_script;
            read_script(path);
            run_script();
        }
    }
    ~Run()
    {
        if (!running) {
            return;
        }
        if (const std::string left = process.left_open(); !left.empty()) {
            trace_line("leak: " + left);
        }
        trace_line("counted actions=" + std::to_string(actions_counted()) +
                   " fallible=" + std::to_string(fallible_counted()));
        save();
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    bool running = false;
} run;

} // namespace
} // namespace seam
