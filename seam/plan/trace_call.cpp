#include "plan/trace_call.h"

#include <cctype>
#include <cstdlib>

namespace seam::plan {

namespace {

constexpr const char *driver_prefix = "ioctl[";

char unescaped(const std::string &line, size_t &at)
{
    switch (line[at]) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'x':
        at += 2;
        return static_cast<char>(std::strtoul(line.substr(at - 1, 2).c_str(), nullptr, 16));
    default:
        return line[at];
    }
}

// An argument that is written as it stands, with everything in brackets.
std::string bare(const std::string &line, size_t &at)
{
    const size_t begin = at;
    int depth = 0;
    while (at < line.size() && (depth > 0 || (line[at] != ',' && line[at] != ')'))) {
        if (line[at] == '"') {
            unquoted(line, at);
            continue;
        }
        depth += line[at] == '[' || line[at] == '{' ? 1 : line[at] == ']' || line[at] == '}' ? -1 : 0;
        ++at;
    }
    return line.substr(begin, at - begin);
}

Text argument(const std::string &line, size_t &at)
{
    if (at < line.size() && line[at] == '"') {
        return unquoted(line, at);
    }
    const std::string text = bare(line, at);
    return text == "null" ? Text{} : Text{text};
}

} // namespace

std::string TraceCall::argument(size_t index) const
{
    return index < arguments.size() ? arguments[index].value_or("") : "";
}

std::string unquoted(const std::string &line, size_t &at)
{
    std::string out;
    for (++at; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\' && at + 1 < line.size()) {
            ++at;
            out += unescaped(line, at);
        } else {
            out += line[at];
        }
    }
    ++at;
    return out;
}

std::optional<TraceCall> call_of(const std::string &line)
{
    size_t at = 0;
    if (line.starts_with(driver_prefix)) {
        at = line.find("] ") + 2;
    }
    TraceCall call;
    while (at < line.size() && (std::isalnum(static_cast<unsigned char>(line[at])) != 0 || line[at] == '_')) {
        call.name += line[at++];
    }
    if (call.name.empty() || at >= line.size() || line[at] != '(') {
        return {};
    }
    for (++at; at < line.size() && line[at] != ')';) {
        call.arguments.push_back(argument(line, at));
        at = line.find_first_not_of(", ", at);
    }
    const std::string rest = at < line.size() ? line.substr(at + 1) : "";
    if (rest.starts_with(" = ")) {
        call.result = std::strtol(rest.c_str() + 3, nullptr, 10);
        const size_t arrow = rest.find(" -> ");
        call.out = arrow == rest.npos ? "" : rest.substr(arrow + 4);
    }
    return call;
}

} // namespace seam::plan
