#include "record/writer.h"

#include "record/complain.h"
#include "record/mask.h"
#include "record/ring.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <libubox/blobmsg.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace seam::record {

using namespace format;

namespace {

// Questions and samples in a row may take so much, before all but the latest are left out.
constexpr size_t longest_row = 32768;

// The latest questions and samples that stand in a row. The counters that the daemon answers with are those
// of the last two samples, so what stands before the last one can go, but for the sample before that.
struct Row {
    struct Sample {
        size_t place;
        size_t size;
        uint32_t before; // events of the row
    };
    size_t begin = 0; // 0: none
    uint32_t events = 0;
    Sample samples[2] = {};
};

Ring ring;
Row row;
uint64_t begin_us = 0;
bool masked = true;
bool under_construction = false;

uint64_t microseconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000 + static_cast<uint64_t>(time.tv_nsec) / 1000;
}

bool is_own(const struct stat &info)
{
    return S_ISREG(info.st_mode) && info.st_nlink == 1 && info.st_uid == geteuid();
}

// Everybody may write to the folder of this file, so only the caller's own regular file, which nobody else
// has under another name, is moved aside, and the new one is made here or not at all.
int make_file(const char *path)
{
    struct stat info = {};
    if (lstat(path, &info) == 0) {
        char aside[256];
        const int length = snprintf(aside, sizeof(aside), "%s.1", path);
        if (!is_own(info)) {
            errno = EPERM;
            return -1;
        }
        if (length >= static_cast<int>(sizeof(aside)) || rename(path, aside) != 0) {
            unlink(path);
        }
    }
    return open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
}

// The room is taken now, and its pages with it: a full disk is no later death, and no record waits for a
// page.
uint8_t *map_file(const char *path, size_t size)
{
    const int fd = make_file(path);
    if (fd < 0) {
        complain("recording to %s: %s", path, strerror(errno));
        return nullptr;
    }
    const int error = posix_fallocate(fd, 0, static_cast<off_t>(size));
    void *base = error != 0 ? MAP_FAILED
                            : mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
    if (base == MAP_FAILED) {
        complain("recording to %s: %s", path, strerror(error != 0 ? error : errno));
        unlink(path);
    }
    close(fd);
    return base == MAP_FAILED ? nullptr : static_cast<uint8_t *>(base);
}

void row_goes_on(size_t place, Event event)
{
    if (event == Event::change) {
        row.begin = 0;
        return;
    }
    if (row.begin == 0) {
        row = {place, 0, {}};
    }
    if (event == Event::sample) {
        row.samples[0] = row.samples[1];
        row.samples[1] = {place, 0, row.events};
    }
    ++row.events;
}

} // namespace

void begin(const char *path, size_t size, bool with_secrets)
{
    size = size < least_size ? least_size : size > largest_size ? largest_size : padded(size);
    if (uint8_t *base = map_file(path, size)) {
        masked = !with_secrets;
        ring.begin(base, size, microseconds(CLOCK_REALTIME), with_secrets ? flag_secrets : 0);
        begin_us = microseconds(CLOCK_MONOTONIC);
    }
}

bool is_running()
{
    return ring.is_there();
}

bool are_secrets_masked()
{
    return masked;
}

void start_over()
{
    ring.start_over();
}

uint64_t now()
{
    return microseconds(CLOCK_MONOTONIC) - begin_us;
}

void event_over()
{
    if (row.begin == 0) {
        return;
    }
    Row::Sample &last = row.samples[1];
    last.size = last.size == 0 && last.place != 0 ? ring.end() - last.place : last.size;
    const Row::Sample &first = row.samples[0];
    if (ring.end() - row.begin < longest_row || first.place == 0) {
        return;
    }
    // Built as any other: header and one number.
    alignas(unit) uint8_t note[padded(header_size + 1 + 8)] = {};
    store(note, static_cast<uint32_t>(Kind::left_out) << 24 | sizeof(note));
    store64(note + 8, now());
    note[header_size] = static_cast<uint8_t>(Tag::number);
    store64(note + header_size + 1, last.before - 1);
    store(note + 4, record_check(note, sizeof(note)));
    if (ring.leave_out({row.begin, last.place, first.place, first.size}, note, sizeof(note))) {
        row.samples[0].place = row.begin + sizeof(note);
        last.place = row.samples[0].place + first.size;
    }
}

void row_over()
{
    row.begin = 0;
}

Entry::Entry(Kind kind, uint64_t time, Event event) : event_{event}
{
    if (under_construction || !ring.is_there()) {
        return;
    }
    under_construction = true;
    ring.note_turns();
    uint8_t *header = ring.room(0, header_size);
    used_ = header_size;
    store(header, static_cast<uint32_t>(kind) << 24);
    store64(header + 8, time);
}

Entry::~Entry()
{
    if (used_ == 0) {
        return;
    }
    const size_t size = padded(used_);
    uint8_t *record = ring.room(used_, size);
    memset(record + used_, 0, size - used_);
    store(record, load(record) | static_cast<uint32_t>(size));
    store(record + 4, record_check(record, size));
    const size_t place = ring.commit(size);
    under_construction = false;
    if (ring.has_turned()) {
        row.begin = 0;
    }
    if (event_ != Event::none) {
        row_goes_on(place, event_);
    }
}

uint8_t *Entry::reserve(size_t size)
{
    // The last bytes are for the note of a text that is left out, and for padding.
    uint8_t *record = used_ == 0 ? nullptr : ring.room(used_, used_ + size + unit);
    if (record == nullptr) {
        return nullptr;
    }
    uint8_t *at = record + used_;
    used_ += size;
    return at;
}

void Entry::tag(Tag tag)
{
    if (uint8_t *at = reserve(1)) {
        *at = static_cast<uint8_t>(tag);
    }
}

void Entry::long_text(size_t length)
{
    if (uint8_t *at = reserve(5)) {
        *at = static_cast<uint8_t>(Tag::long_text);
        store(at + 1, static_cast<uint32_t>(length));
    }
}

// Never secret.
void Entry::name(const char *name)
{
    bytes(name, strlen(name), Tag::text);
}

// Where they stand now; null where they are left out.
char *Entry::bytes(const void *from, size_t length, Tag tag)
{
    char *at = room(length);
    if (at == nullptr) {
        long_text(length);
        return nullptr;
    }
    memcpy(at, from, length);
    at[-3] = static_cast<char>(tag);
    room_used(length);
    return at;
}

void Entry::text(const char *text, Tag tag)
{
    if (text == nullptr) {
        this->tag(Tag::null);
    } else {
        this->text(text, strlen(text), tag);
    }
}

void Entry::text(const char *text, size_t length, Tag tag)
{
    if (char *at = bytes(text, length, tag); at != nullptr && masked) {
        mask_text(at, length);
    }
}

void Entry::secret(const char *text)
{
    if (text == nullptr || !masked) {
        this->text(text);
        return;
    }
    const size_t length = strlen(text);
    keep_secret(text, length);
    if (char *at = room(length)) {
        memset(at, '*', length);
        room_used(length);
    } else {
        long_text(length);
    }
}

void Entry::number(long long number)
{
    if (uint8_t *at = reserve(9)) {
        *at = static_cast<uint8_t>(Tag::number);
        store64(at + 1, static_cast<uint64_t>(number));
    }
}

void Entry::hex(uint32_t number, int digits)
{
    if (uint8_t *at = reserve(6)) {
        at[0] = static_cast<uint8_t>(Tag::hex);
        at[1] = static_cast<uint8_t>(digits);
        store(at + 2, number);
    }
}

void Entry::mac(const uint8_t *bytes)
{
    if (bytes == nullptr) {
        tag(Tag::null);
    } else if (uint8_t *at = reserve(7)) {
        *at = static_cast<uint8_t>(Tag::mac);
        memcpy(at + 1, bytes, 6);
    }
}

void Entry::message(const blob_attr *message)
{
    const size_t length = blob_raw_len(message);
    if (char *at = bytes(message, length, Tag::message); at != nullptr && masked) {
        mask_message(at, length);
    }
}

char *Entry::room(size_t size)
{
    constexpr size_t head = 3; // tag and length
    uint8_t *at = size > longest_value ? nullptr : reserve(head + size);
    if (at == nullptr) {
        return nullptr;
    }
    used_ -= head + size;
    *at = static_cast<uint8_t>(Tag::text);
    return reinterpret_cast<char *>(at + head);
}

void Entry::room_used(size_t size)
{
    uint8_t *at = ring.room(used_, used_) + used_;
    at[1] = static_cast<uint8_t>(size);
    at[2] = static_cast<uint8_t>(size >> 8);
    used_ += 3 + size;
}

} // namespace seam::record
