#include "record/ring.h"

namespace seam::record {

using namespace format;

void Ring::begin(uint8_t *base, size_t size, uint64_t begin_us, uint32_t flags)
{
    base_ = base;
    size_ = size;
    memcpy(base, magic, sizeof(magic));
    store(base + at_version, version);
    store(base + at_size, static_cast<uint32_t>(size));
    store64(base + at_begin, begin_us);
    store(base + at_flags, flags);
    store(base + at_check, check_of(base, at_check));
    mark(at_start_end, 0);
    mark(at_tail, tail_);
    mark(at_end, end_);
    mark(at_lost, 0);
}

// Volatile: what was written before it is there when it is.
void Ring::mark(size_t at, size_t place)
{
    __asm__ volatile("" ::: "memory");
    *reinterpret_cast<volatile uint32_t *>(base_ + at) = little(mark_of(place));
    __asm__ volatile("" ::: "memory");
}

void Ring::start_over()
{
    if (start_runs_) {
        start_runs_ = false;
        ring_ = tail_ = end_;
        mark(at_tail, tail_);
        mark(at_start_end, ring_);
    }
}

void Ring::drop_oldest()
{
    mark(at_lost, unit);
    turned_ = true;
    const uint32_t header = size_ - tail_ < header_size ? 0 : load(base_ + tail_);
    const bool at_wrap = header == 0 || static_cast<Kind>(header >> 24) == Kind::wrap;
    tail_ = at_wrap ? ring_ : tail_ + (header & 0xffffff);
}

// The record under construction goes on at the ring's beginning.
void Ring::turn(size_t used, size_t wanted)
{
    const size_t from = end_;
    while (tail_ < ring_ + wanted + unit && tail_ != from) {
        drop_oldest();
    }
    mark(at_tail, tail_);
    memmove(base_ + ring_, base_ + from, used);
    if (size_ - from >= header_size) {
        memset(base_ + from, 0, header_size);
        store(base_ + from, static_cast<uint32_t>(Kind::wrap) << 24 | header_size);
        store(base_ + from + 4, record_check(base_ + from, header_size));
    }
    turned_ = true;
    end_ = ring_;
}

uint8_t *Ring::make_room(size_t used, size_t wanted)
{
    if (start_runs_ && end_ + wanted > size_ / 2) {
        start_over();
    }
    if (end_ + wanted <= limit()) {
        return base_ + end_;
    }
    if (wanted > (size_ - ring_) / 2 - unit) {
        return nullptr;
    }
    while (is_wrapped() && end_ + wanted > limit()) {
        drop_oldest();
    }
    mark(at_tail, tail_);
    if (end_ + wanted > limit()) {
        turn(used, wanted);
    }
    return base_ + end_;
}

size_t Ring::commit(size_t size)
{
    const size_t place = end_;
    end_ += size;
    mark(at_end, end_);
    return place;
}

bool Ring::leave_out(const Gap &gap, const uint8_t *record, size_t size)
{
    const size_t kept = end_ - gap.to;
    const size_t front = size + gap.piece_size;
    if (gap.to - gap.from < front + kept) {
        return false;
    }
    mark(at_end, gap.from);
    memmove(base_ + gap.from + size, base_ + gap.piece, gap.piece_size);
    memcpy(base_ + gap.from, record, size);
    memcpy(base_ + gap.from + front, base_ + gap.to, kept);
    end_ = gap.from + front + kept;
    mark(at_end, end_);
    return true;
}

} // namespace seam::record
