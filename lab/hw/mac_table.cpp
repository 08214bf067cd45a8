#include "mac_table.h"

#include <algorithm>

namespace lab {

void MacTable::learn(uint16_t vid, uint64_t mac, unsigned port, uint64_t now)
{
    const auto found = table_.find(key(vid, mac));
    if (found != table_.end()) {
        found->second = {port, now};
        return;
    }
    if (table_.size() < limit_) {
        table_.emplace(key(vid, mac), Station{port, now});
    }
}

int MacTable::find(uint16_t vid, uint64_t mac, uint64_t now) const
{
    const auto found = table_.find(key(vid, mac));
    return found == table_.end() || aged(found->second, now) ? -1 : static_cast<int>(found->second.port);
}

void MacTable::flush_port(unsigned port)
{
    std::erase_if(table_, [&](const auto &item) { return item.second.port == port; });
}

void MacTable::expire(uint64_t now)
{
    std::erase_if(table_, [&](const auto &item) { return aged(item.second, now); });
}

std::vector<MacEntry> MacTable::entries() const
{
    std::vector<MacEntry> list;
    list.reserve(table_.size());
    for (const auto &[key, station] : table_) {
        list.push_back(
            {static_cast<uint16_t>(key >> 48), key & 0xffff'ffff'ffff, station.port, station.heard});
    }
    std::sort(list.begin(), list.end(), [](const MacEntry &a, const MacEntry &b) {
        return a.vid != b.vid ? a.vid < b.vid : a.mac < b.mac;
    });
    return list;
}

} // namespace lab
