// What is wrong with a configuration, as facts: a list of tables.
#pragma once

#include "json.h"

namespace ctl {

// What the daemon does about it. It never starts with the first; the others cost less.
enum class effect { ends, broken, ignored, taken };

struct place {
    const char *file;
    const char *section = nullptr; // of the board file: the key
    const char *option = nullptr;
};

class findings {
public:
    findings() : list_(json_object_new_array()) {}

    // does: what the daemon does, as a sentence's end; the format says what is wrong.
    [[gnu::format(printf, 5, 6)]] void add(const place &where, effect what_comes, const char *does,
                                           const char *format, ...);
    bool any() const { return count_of(list_.get()) != 0; }
    bool end_the_start() const { return ends_; }
    json take() { return std::move(list_); }

private:
    json list_;
    bool ends_ = false;
};

} // namespace ctl
