// Replay: a recording answers the daemon. What was configured and what board it was comes from the recording
// before the start, each event when the daemon is in its event loop; every line that the daemon leaves is
// compared with the recorded one. The first that differs ends the run.
//
//   IVARODE_REPLAY  the recording. On standard output: the lines before the end, each with "= ", and
//                   "same CALLS" or "gap CALLS SECONDS" (what follows has been overwritten), or "differs
//                   CALLS SECONDS", "- " with what was recorded, "+ " with what happened. Exit status: 0 for
//                   the first two, 1 for a difference, 2 when it cannot be read.

#include "call.h"
#include "events.h"
#include "message.h"
#include "process.h"
#include "recording.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <unistd.h>

namespace seam {

using namespace format;

namespace {

constexpr size_t lines_before = 60;

Recording played;
size_t next_record = 0;
unsigned calls = 0;
unsigned events = 0;
bool running = false;
std::FILE *rules_file = nullptr;
std::map<std::string, unsigned> made; // calls, how often

void write_out(const std::string &text)
{
    for (size_t at = 0; at < text.size();) {
        const ssize_t written = write(STDOUT_FILENO, text.data() + at, text.size() - at);
        if (written <= 0) {
            break;
        }
        at += static_cast<size_t>(written);
    }
}

std::string seconds_of(size_t record)
{
    char text[40];
    const uint64_t time_us = record < played.records.size() ? played.records[record].time_us : 0;
    std::snprintf(text, sizeof(text), "%.6f", static_cast<double>(played.begin_us + time_us) / 1e6);
    return text;
}

[[noreturn]] void end_with(int status, const std::string &verdict)
{
    std::string out;
    std::vector<std::string> before;
    for (size_t i = next_record; i > 0 && before.size() < lines_before; --i) {
        if (std::string line = played.records[i - 1].line(); !line.empty()) {
            before.push_back("= " + std::move(line) + "\n");
        }
    }
    for (auto line = before.rbegin(); line != before.rend(); ++line) {
        out += *line;
    }
    write_out(out + verdict + "\n");
    _exit(status);
}

[[noreturn]] void differ(const std::string &now)
{
    const bool is_over = next_record >= played.records.size();
    const std::string recorded = is_over ? "the end of the recording" : played.records[next_record].line();
    end_with(1, "differs " + std::to_string(calls) + " " + seconds_of(next_record) + " " +
                    std::to_string(events) + "\n- " +
                    (recorded.empty() ? "the end of the process" : recorded) + "\n+ " + now);
}

// Where the recording says no more, there is nothing to compare.
void end_when_over()
{
    if (next_record == played.gap && played.gap != played.records.size()) {
        end_with(0, "gap " + std::to_string(calls) + " " + seconds_of(next_record));
    }
    if (next_record == played.records.size()) {
        end_with(0, "same " + std::to_string(calls));
    }
}

// Records that are no lines take effect as soon as those before them are done.
void skip_silent()
{
    for (; next_record < played.records.size() && next_record != played.gap; ++next_record) {
        const Record &record = played.records[next_record];
        if (record.kind == Kind::debug) {
            debug_words()[0] = static_cast<uint32_t>(record.values[0].number);
        } else if (record.kind == Kind::over || !record.line().empty()) {
            break;
        }
    }
    // Only the end of the process tells that it was in order.
    if (next_record == played.records.size() || played.records[next_record].kind != Kind::over) {
        end_when_over();
    }
}

void done_with(const Record &record)
{
    calls += record.kind == Kind::call ? 1 : 0;
    ++next_record;
    skip_silent();
}

// A report without the addresses of memory in it, which are others in each process.
std::string without_addresses(std::string line)
{
    constexpr size_t least_digits = 6;
    if (!line.starts_with("syslog(") && !line.starts_with("outlib_")) {
        return line;
    }
    for (size_t at = 0; (at = line.find("0x", at)) != line.npos; at += 2) {
        const size_t end = std::min(line.find_first_not_of("0123456789abcdef", at + 2), line.size());
        if (end - at - 2 >= least_digits) {
            line.erase(at + 2, end - at - 2);
        }
    }
    return line;
}

void compare(std::string_view line)
{
    if (!running) {
        return;
    }
    const bool is_over = next_record >= played.records.size();
    if (is_over || played.records[next_record].is_event() ||
        without_addresses(played.records[next_record].line()) != without_addresses(std::string{line})) {
        differ(std::string{line});
    }
    done_with(played.records[next_record]);
}

// A rule for a call that would have been answered in another way.
void write_rule(const std::string &call, const Answer &own, const Answer &recorded)
{
    const bool is_same = own.value == recorded.value && (recorded.value != 0 || own.out == recorded.out);
    if (rules_file == nullptr || is_same) {
        return;
    }
    // These have a meaning in a pattern.
    std::string pattern = call;
    std::replace_if(
        pattern.begin(), pattern.end(), [](char c) { return c == '*' || c == '[' || c == '?'; }, '?');
    std::fprintf(rules_file, "result #%u %s = %ld%s%s\n", made[call], pattern.c_str(), recorded.value,
                 recorded.out.empty() ? "" : " -> ", recorded.out.c_str());
    std::fflush(rules_file);
}

// Calls of the C library that the world answers without being asked: they succeed.
bool is_plain_call(const Record &record)
{
    const std::string &name = record.name();
    return name == "sleep" || name == "fopen" || (name == "socket" && record.result() < 0);
}

std::optional<Answer> recorded_answer(const std::string &call)
{
    // Memory always suffices.
    if (!running || call.starts_with("alloc(")) {
        return {};
    }
    const Record *record = next_record < played.records.size() ? &played.records[next_record] : nullptr;
    const std::string line = record == nullptr ? "" : record->line();
    if (record != nullptr && record->kind == Kind::walk && line == call + " {") {
        return Answer{0, {}};
    }
    if (record == nullptr || record->kind != Kind::call || record->call() != call) {
        differ(call);
    }
    if (record->hidden < record->values.size()) {
        world.net_dev = record->values[record->hidden].text;
    }
    Answer answer{static_cast<long>(record->result()), record->out()};
    ++made[call];
    if (is_plain_call(*record) && answer.value != 0) {
        write_rule(call, {0, {}}, answer);
    }
    return answer;
}

void play_request(const Record &record)
{
    if (record.values[2].tag != Tag::message) {
        differ("a request whose message was too long to be recorded");
    }
    const std::optional<int> status =
        call_method_raw(record.values[0].text, record.values[1].text, record.values[2].text);
    trace_line(status ? "status " + std::to_string(*status) : "no such method");
}

void play_event(const Record &record)
{
    const auto number = [&](size_t at) { return static_cast<uint32_t>(record.values[at].number); };
    ++next_record;
    ++events;
    skip_silent();
    switch (record.kind) {
    case Kind::request:
        return play_request(record);
    case Kind::link:
        return link_changes(number(0), number(1));
    case Kind::address:
        return address_comes(number(0), number(1));
    default:
        return timer_rings();
    }
}

void play_events()
{
    while (next_record < played.records.size() && played.records[next_record].is_event()) {
        play_event(played.records[next_record]);
    }
}

// What the daemon only reads is the same for its whole life.

void state_board(const Record &record)
{
    const std::vector<Value> &values = record.values;
    const size_t hidden = record.hidden;
    if (record.name() == "sys_bdinfo_macbase_get" && hidden < values.size() &&
        values[hidden].tag == Tag::mac) {
        memcpy(world.mac.data(), values[hidden].text.data(), world.mac.size());
    } else if (record.name() == "sys_bdinfo_cpuid_get" && hidden < values.size()) {
        world.cpu = static_cast<uint32_t>(values[hidden].number);
    } else if (record.name() == "sys_bdinfo_ether_get" && hidden + 1 < values.size() && record.results > 1) {
        world.ports[static_cast<size_t>(values[1].number) % world.ports.size()] = {
            static_cast<uint8_t>(values[hidden].number), static_cast<uint8_t>(values[hidden + 1].number)};
    }
}

void state_configuration(const Record &record, std::string &package, std::string &type)
{
    const std::vector<Value> &values = record.values;
    if (record.kind == Kind::walk) {
        package = values[0].text;
        type = values[1].text;
        world.packages.insert(package);
    } else if (record.kind == Kind::section) {
        world.sections.push_back({package, type, values[0].text, {}});
    } else if (record.kind == Kind::option && record.hidden < values.size() &&
               values[record.hidden].number == 0 && !world.sections.empty()) {
        world.sections.back().options.emplace_back(values[1].text, values[2].text);
    }
}

void state_world()
{
    std::string package;
    std::string type;
    for (const Record &record : played.records) {
        if (record.kind == Kind::say) {
            state_board(record);
        } else {
            state_configuration(record, package, type);
        }
    }
}

void died(int number)
{
    differ(std::string{"the daemon dies of signal "} + std::to_string(number));
}

// Constructed after everything else of this library, and the first to go.
struct Replay {
    Replay()
    {
        const char *path = std::getenv("IVARODE_REPLAY");
        if (path == nullptr) {
            return;
        }
        const Text bytes = file_text(path);
        auto read = read_recording(bytes.value_or(""));
        if (const auto *error = std::get_if<std::string>(&read)) {
            write_out("unreadable " + *error + "\n");
            _exit(2);
        }
        played = std::move(std::get<Recording>(read));
        trace_to_file({}, false);
        state_world();
        for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT, SIGILL}) {
            std::signal(number, died);
        }
        shown.options = true;
        if (const char *rules = std::getenv("IVARODE_REPLAY_RULES"); rules != nullptr) {
            rules_file = std::fopen(rules, "w");
            comparer = write_rule;
        }
        trace_listener = compare;
        answerer = recorded_answer;
        event_loop = play_events;
        running = true;
        skip_silent();
        watch_begin();
    }
    ~Replay()
    {
        if (!running) {
            return;
        }
        if (next_record < played.records.size() && played.records[next_record].kind == Kind::over) {
            ++next_record;
            end_when_over();
        }
        differ("the end of the process");
    }
    Replay(const Replay &) = delete;
    Replay &operator=(const Replay &) = delete;
} replay;

} // namespace
} // namespace seam
