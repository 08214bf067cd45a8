#include "trace.h"

#include "program.h"
#include "text.h"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace seam {

Shown shown;
void (*trace_listener)(std::string_view line) = nullptr;

namespace {

constexpr int endless_status = 99;

int trace_fd = -1;
bool in_memory = false;
std::vector<std::string> lines;
bool with_sites = false;
bool quiet_now = false;
unsigned lines_left = 20000;
Program program;

void write_line(std::string text)
{
    text += lines_left == 0 ? "\nendless\n" : "\n";
    const ssize_t written = write(trace_fd, text.data(), text.size());
    if (lines_left == 0 || written != static_cast<ssize_t>(text.size())) {
        _exit(endless_status);
    }
    lines_left--;
}

} // namespace

void trace_to_file(const std::string &path, bool sites)
{
    program = find_program();
    with_sites = sites;
    if (!path.empty()) {
        trace_fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
}

void trace_limit(unsigned limit)
{
    lines_left = limit;
}

void trace_quiet(bool quiet)
{
    quiet_now = quiet;
}

void trace_to_memory()
{
    in_memory = true;
    lines.clear();
}

std::vector<std::string> trace_take()
{
    return std::exchange(lines, {});
}

void trace_line(std::string_view line, const void *site)
{
    if (trace_listener != nullptr) {
        trace_listener(line);
    }
    if (in_memory) {
        lines.emplace_back(line);
    }
    if (trace_fd < 0 || quiet_now) {
        return;
    }
    std::string text{line};
    if (with_sites && from_daemon(site)) {
        text += "\t@" + hex(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(site) - program.base));
    }
    write_line(std::move(text));
}

bool from_daemon(const void *site)
{
    return program.holds(site);
}

} // namespace seam
