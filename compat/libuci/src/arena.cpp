#include "arena.h"

#include <cstdlib>
#include <cstring>

namespace uci {

namespace {

// Less than a page with what malloc adds, and enough for a dozen sections.
constexpr size_t usual_block = 4000;

size_t aligned(size_t size)
{
    constexpr size_t unit = alignof(void *);
    return (size + unit - 1) / unit * unit;
}

} // namespace

void *arena::take(size_t size)
{
    size = aligned(size);
    if (size > left_ && !grow(size)) {
        return nullptr;
    }
    void *taken = next_;
    next_ += size;
    left_ -= size;
    return taken;
}

bool arena::grow(size_t size)
{
    const size_t needed = size + aligned(sizeof(held));
    const size_t room = needed > usual_block ? needed : usual_block;
    auto *block = static_cast<char *>(malloc(room));
    if (!block) {
        return false;
    }
    next_ = block;
    left_ = room;
    return adopt(block);
}

char *arena::copy(const char *text)
{
    const size_t size = strlen(text) + 1;
    void *made = take(size);
    return made ? static_cast<char *>(memcpy(made, text, size)) : nullptr;
}

bool arena::adopt(void *block)
{
    auto *entry = static_cast<held *>(take(sizeof(held)));
    if (!entry) {
        return false;
    }
    *entry = {held_, block};
    held_ = entry;
    return true;
}

void arena::release()
{
    held *entry = held_;
    *this = {};
    while (entry) {
        // The entry itself goes with one of the blocks: its own, or an older one.
        held *next = entry->next;
        free(entry->block);
        entry = next;
    }
}

} // namespace uci
