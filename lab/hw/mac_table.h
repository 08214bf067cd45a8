// The switch's address table: which port a station of a VLAN was last heard on. Bounded; a full table learns
// nothing new until entries age out, are flushed, or their station moves. Times are milliseconds of any
// monotonic clock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace lab {

struct MacEntry {
    uint16_t vid;
    uint64_t mac; // 48 bits, first octet highest
    unsigned port;
    uint64_t heard;
};

class MacTable {
public:
    static constexpr uint64_t ageing_ms = 300'000;

    explicit MacTable(size_t entries) : limit_(entries) { table_.reserve(entries); }

    void learn(uint16_t vid, uint64_t mac, unsigned port, uint64_t now);
    // The port of a station heard within the ageing time; -1 for an unknown one.
    int find(uint16_t vid, uint64_t mac, uint64_t now) const;

    void flush() { table_.clear(); }
    void flush_port(unsigned port);
    void expire(uint64_t now);

    size_t size() const { return table_.size(); }
    size_t capacity() const { return limit_; }
    std::vector<MacEntry> entries() const; // sorted by VLAN, then address

private:
    struct Station {
        unsigned port;
        uint64_t heard;
    };

    static uint64_t key(uint16_t vid, uint64_t mac) { return uint64_t{vid} << 48 | mac; }
    static bool aged(const Station &station, uint64_t now) { return now - station.heard >= ageing_ms; }

    std::unordered_map<uint64_t, Station> table_;
    size_t limit_;
};

} // namespace lab
