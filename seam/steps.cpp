// The steps that a scenario takes inside the event loop, and the run of a script from the loading of the
// library to its end.

#include "call.h"
#include "message.h"
#include "process.h"
#include "script.h"

#include <cstdlib>
#include <libubus.h>
#include <malloc.h>
#include <unistd.h>

namespace seam {
namespace {

[[noreturn]] void script_error(const std::string &text)
{
    trace_line("script error: " + text);
    _exit(98);
}

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
    for (int i = 0; i < method.n_policy; i++) {
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
        for (int i = 0; i < object->n_methods; i++) {
            trace_line(method_text(object->methods[i]));
        }
    }
}

void show_lines(const std::string &text)
{
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin);
        trace_line(text.substr(begin, end - begin));
        begin = end + 1;
    }
}

template <class Event> void deliver(int (*handler)(const Event *), const Event &event)
{
    trace_line(handler == nullptr ? "no handler" : "returned " + std::to_string(handler(&event)));
}

void run_timer()
{
    if (process.timer == nullptr) {
        trace_line("no timer");
        return;
    }
    uloop_timeout *timer = std::exchange(process.timer, nullptr);
    timer->cb(timer);
}

// The lines of the message stand behind the call's, up to one that is a dot.
Message message_of(const std::vector<ScriptLine> &script, size_t &next)
{
    Message message;
    for (; next < script.size() && script[next].word() != "."; next++) {
        const ScriptLine &line = script[next];
        const int type = static_cast<int>(line.number(1));
        if (line.word() == "field") {
            message.field(line[2].c_str(), type, line[3]);
        } else if (line.word() == "open") {
            message.open(line[2].c_str(), type == BLOBMSG_TYPE_ARRAY);
        } else {
            message.close();
        }
    }
    next++;
    return message;
}

void call(const ScriptLine &line, const std::vector<ScriptLine> &script, size_t &next)
{
    const std::optional<int> status = call_method(line[1], line[2], message_of(script, next));
    if (!status) {
        script_error("no method " + line[1] + " " + line[2]);
    }
    trace_line("status " + std::to_string(*status));
}

} // namespace

bool step(const ScriptLine &line, const std::vector<ScriptLine> &script, size_t &next)
{
    const std::string &word = line.word();
    if (word == "step") {
        trace_line("> " + line[1] + " fallible=" + std::to_string(fallible_counted()));
    } else if (word == "call") {
        call(line, script, next);
    } else if (word == "link") {
        deliver(process.on_link, nl_link_event{line.number(1), line.number(2)});
    } else if (word == "address") {
        deliver(process.on_address, nl_addr_event{line.number(2), line.number(1)});
    } else if (word == "timer") {
        run_timer();
    } else if (word == "objects") {
        show_objects();
    } else if (word == "model") {
        show_lines(picture(line[1]));
    } else if (word == "counter") {
        trace_line("counter " + std::to_string(debug_counter()));
    } else if (word == "memory") {
        trace_line("memory " + std::to_string(mallinfo2().uordblks));
    } else {
        return false;
    }
    return true;
}

namespace {

std::vector<ScriptLine> script;
size_t next_line = 0;

void run_steps()
{
    while (next_line < script.size()) {
        const ScriptLine line = script[next_line++];
        if (!state(line) && !steer(line) && !step(line, script, next_line)) {
            script_error(line.word());
        }
    }
}

// The last object of this library to be constructed (this file is linked last) and so the first to go.
struct Run {
    Run()
    {
        const char *path = std::getenv("IVARODE_SCRIPT");
        if (path == nullptr) {
            return;
        }
        running = true;
        watch_begin();
        event_loop = run_steps;
        script = script_read(path);
        while (next_line < script.size() && script[next_line].word() != "loop") {
            const ScriptLine &line = script[next_line++];
            if (!state(line) && !steer(line)) {
                script_error(line.word());
            }
        }
        next_line++;
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
