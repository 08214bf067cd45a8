// A recording as it is read: its records, and each as the line that the same call has in a trace.
#pragma once

#include "format.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace seam {

struct Value {
    format::Tag tag;
    std::string text; // of texts, words and messages; the six bytes of a MAC
    long long number = 0;
    int digits = 0;
};

struct Record {
    format::Kind kind;
    uint64_t time_us; // since the recording's begin
    size_t place;     // in the file
    std::string prefix;
    std::vector<Value> values; // name and arguments; then results; then what is hidden
    size_t results = 0;        // where they begin in values, and end
    size_t hidden = 0;

    const std::string &name() const { return values.front().text; }
    // What a call returned, and what it filled in.
    long long result() const { return values[results].number; }
    std::string out() const;
    // "name(arguments)"
    std::string call() const;
    // What is no part of the line, its values parted by blanks.
    std::string hidden_text() const;
    // Its line in a trace; the step, with "> ", for an event; empty for what has none.
    std::string line() const;
    bool is_event() const;
};

struct Recording {
    uint64_t begin_us = 0; // since 1970
    bool with_secrets = false;
    std::vector<Record> records;
    // Between this record and the one before it others have been overwritten; none: records.size().
    size_t gap = 0;
};

// The recording, or why it cannot be read.
std::variant<Recording, std::string> read_recording(std::string_view bytes);

// "link 2 up" and the like, without "> ".
std::string address_text(uint32_t address);

} // namespace seam
