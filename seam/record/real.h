// The functions that this library stands in front of, and who calls them.
#pragma once

namespace seam::record {

// What has a name behind this library; null where nothing has.
void *find_symbol(const char *name);

// The next function of a name behind this library. The process ends where there is none: its callers could
// not go on either.
void *next_function(const char *name);

// Looked up once for each function.
template <auto Function> auto real_function(const char *name)
{
    static decltype(Function) real = nullptr;
    if (real == nullptr) {
        real = reinterpret_cast<decltype(Function)>(next_function(name));
    }
    return real;
}

// True for a call that is recorded: of the program itself, not of its libraries.
bool is_recorded(const void *site);
// Before the first call: which code is the program's.
void note_program();

// A function's name, and where it was called.
struct Name {
    Name(const char *name, const void *caller = __builtin_return_address(0)) : text{name}, site{caller} {}
    const char *text;
    const void *site;
};

} // namespace seam::record
