// The recording of this process: a file of fixed size that is mapped. A record is whole before it counts, so
// the file can be read at any moment, and after the death of the process.
//
// Owns: the mapping, for the life of the process. Nothing is allocated.
// Errors: a recording that cannot be begun is said in the system log; the process then goes on without one.
#pragma once

#include "format.h"

#include <cstddef>
#include <cstdint>

struct blob_attr;

namespace seam::record {

// Begins the recording at a path; what was there becomes PATH.1. Secrets are masked unless wanted.
void begin(const char *path, size_t size, bool with_secrets);
// True when there is a recording.
bool is_running();
bool are_secrets_masked();
// The start is over: the ring begins.
void start_over();

// Microseconds since the begin.
uint64_t now();

// What a record is to those that stand about it: a change begins an event that is kept until the ring is
// full. Of questions and samples in a row, which change nothing in the daemon, the latest are kept.
enum class Event { none, change, question, sample };

// One record. It counts from its destruction on.
class Entry {
public:
    explicit Entry(format::Kind kind, uint64_t time = now(), Event event = Event::none);
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;
    ~Entry();

    void tag(format::Tag tag);
    void name(const char *name);
    void text(const char *text, format::Tag tag = format::Tag::text);
    void text(const char *text, size_t length, format::Tag tag = format::Tag::text);
    // A text that others must not read.
    void secret(const char *text);
    void number(long long number);
    void hex(uint32_t number, int digits);
    void mac(const uint8_t *bytes);
    void message(const blob_attr *message);

    // Room for a text of at most so many bytes, to be filled from outside; what is used of it is a text. Null
    // where there is none.
    char *room(size_t size);
    void room_used(size_t size);

private:
    uint8_t *reserve(size_t size);
    char *bytes(const void *from, size_t length, format::Tag tag);
    void long_text(size_t length);

    size_t used_ = 0; // 0: there is no recording, or another record is not whole yet
    Event event_;
};

// The event that began last is over.
void event_over();
// What has been recorded since the last change is kept as it is.
void row_over();

} // namespace seam::record
