#include "section_index.h"

#include <cstdint>

namespace uci {

namespace {

constexpr size_t first_capacity = 32;

// FNV-1a.
uint32_t hash_of(const char *name)
{
    uint32_t hash = 2166136261U;
    for (; *name; name++) {
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619U;
    }
    return hash;
}

} // namespace

// Where the name is, or the empty place where it belongs.
size_t section_index::place_of(const char *name) const
{
    size_t at = hash_of(name) & (capacity_ - 1);
    while (places_[at].section && !is_named(&places_[at].section->e, name)) {
        at = (at + 1) & (capacity_ - 1);
    }
    return at;
}

uci_section *section_index::find(const char *name) const
{
    return capacity_ ? places_[place_of(name)].section : nullptr;
}

bool section_index::grow()
{
    section_index wider;
    wider.capacity_ = capacity_ ? capacity_ * 2 : first_capacity;
    wider.places_ = static_cast<place *>(calloc(wider.capacity_, sizeof(place)));
    if (!wider.places_) {
        return false;
    }
    for (size_t i = 0; i < capacity_; i++) {
        if (uci_section *section = places_[i].section) {
            wider.places_[wider.place_of(section->e.name)].section = section;
        }
    }
    free(places_);
    places_ = wider.places_;
    capacity_ = wider.capacity_;
    wider.places_ = nullptr;
    return true;
}

bool section_index::add(uci_section *section)
{
    if (used_ >= capacity_ - capacity_ / 4 && !grow()) {
        return false;
    }
    place &own = places_[place_of(section->e.name)];
    if (!own.section) {
        own.section = section;
        used_++;
    }
    return true;
}

} // namespace uci
