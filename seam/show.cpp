// ivarode-recording: the records of a recording as text, for lab/lab. A line for each, its fields parted by
// tabs: seconds since 1970, kind of record, place in the file, what is no part of the text, the text. Exit
// status: 0, or 2 with a reason.

#include "recording.h"
#include "text.h"

#include <cstdio>
#include <exception>

using namespace seam;
using namespace seam::format;

namespace {

constexpr const char *usage =
    "usage: ivarode-recording FILE\n"
    "Prints the records of a recording: seconds since 1970, kind, place, what is not shown, text.\n";

const char *kind_name(Kind kind)
{
    switch (kind) {
    case Kind::request:
    case Kind::link:
    case Kind::address:
    case Kind::timer:
        return "event";
    case Kind::call:
        return "call";
    case Kind::section:
        return "section";
    case Kind::option:
        return "option";
    case Kind::debug:
        return "debug";
    case Kind::file:
        return "file";
    case Kind::left_out:
        return "left-out";
    case Kind::over:
        return "over";
    default:
        return "line";
    }
}

std::string text_of(const Record &record)
{
    switch (record.kind) {
    case Kind::section:
    case Kind::file: {
        std::string out;
        for (const Value &value : record.values) {
            out += (out.empty() ? "" : "\t") + (value.tag == Tag::text ? quote(value.text) : "null");
        }
        return out;
    }
    case Kind::debug:
    case Kind::left_out:
        return std::to_string(record.values[0].number);
    case Kind::over:
        return {};
    default:
        return record.line();
    }
}

int show(const char *path)
{
    const std::optional<std::string> bytes = file_text(path);
    if (!bytes) {
        std::fprintf(stderr, "%s: cannot be read\n", path);
        return 2;
    }
    const auto read = read_recording(*bytes);
    const auto *recording = std::get_if<Recording>(&read);
    if (recording == nullptr) {
        std::fprintf(stderr, "%s: %s\n", path, std::get<std::string>(read).c_str());
        return 2;
    }
    for (size_t i = 0; i < recording->records.size(); ++i) {
        const Record &record = recording->records[i];
        const double seconds = static_cast<double>(recording->begin_us + record.time_us) / 1e6;
        if (i == recording->gap) {
            std::printf("%.6f\tgap\t0\t\t\n", seconds);
        }
        std::printf("%.6f\t%s\t%zu\t%s\t%s\n", seconds, kind_name(record.kind), record.place,
                    record.hidden_text().c_str(), text_of(record).c_str());
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
try {
    if (argc != 2 || std::string_view{argv[1]} == "--help") {
        std::fputs(usage, argc == 2 ? stdout : stderr);
        return argc == 2 ? 0 : 2;
    }
    return show(argv[1]);
} catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
}
