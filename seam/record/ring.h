// The places of a recording's records: a linear part while the start runs, then a ring. Knows nothing of what
// a record says.
#pragma once

#include "format.h"

#include <cstddef>
#include <cstdint>

namespace seam::record {

class Ring {
public:
    // A mapped file of zeros, and what its head is to say.
    void begin(uint8_t *base, size_t size, uint64_t begin_us, uint32_t flags);
    bool is_there() const { return base_ != nullptr; }

    // Where the record under construction stands, with room for so many bytes of it, the first `used` of
    // which are kept. Old records go where need be. Null when it would be too large.
    uint8_t *room(size_t used, size_t wanted)
    {
        return end_ + wanted <= limit() && !(start_runs_ && end_ + wanted > size_ / 2)
                   ? base_ + end_
                   : make_room(used, wanted);
    }
    // The record under construction is whole. Where it stands.
    size_t commit(size_t size);
    size_t end() const { return end_; }
    // True when records have been moved or dropped since places in the ring were noted.
    bool has_turned() const { return turned_; }
    void note_turns() { turned_ = false; }

    // The ring begins behind what is there.
    void start_over();

    // What is to be left out between two places: all but a piece, before which a record is put. The record is
    // padded.
    struct Gap {
        size_t from;
        size_t to;
        size_t piece;
        size_t piece_size;
    };
    // False when there is too little to leave out. The piece then begins behind the record, at `from`.
    bool leave_out(const Gap &gap, const uint8_t *record, size_t size);

private:
    bool is_wrapped() const { return end_ < tail_; }
    size_t limit() const { return is_wrapped() ? tail_ - format::unit : size_; }
    uint8_t *make_room(size_t used, size_t wanted);
    void turn(size_t used, size_t wanted);
    void drop_oldest();
    void mark(size_t at, size_t place);

    uint8_t *base_ = nullptr;
    size_t size_ = 0;
    size_t ring_ = format::first_record; // where it begins
    size_t tail_ = format::first_record;
    size_t end_ = format::first_record;
    bool start_runs_ = true;
    bool turned_ = false;
};

} // namespace seam::record
