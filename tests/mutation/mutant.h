// Put before every source of the mutated tree: which mutant runs, and what of the sources is reached.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>

// Two arguments that may change places: of the same type, however they are held.
template <typename Type>
using mutant_argument = std::remove_const_t<std::remove_pointer_t<std::decay_t<Type>>>;
template <typename One, typename Two>
constexpr std::enable_if_t<std::is_same_v<mutant_argument<One>, mutant_argument<Two>> &&
                           std::is_pointer_v<std::decay_t<One>> == std::is_pointer_v<std::decay_t<Two>>>
mutant_same()
{}

inline unsigned mutant_setting(const char *name)
{
    const char *text = getenv(name);
    return text != nullptr ? static_cast<unsigned>(strtoul(text, nullptr, 10)) : 0;
}

// A mutant may loop for ever, write for ever or take all memory. Processor time does not depend on the load.
inline unsigned mutant_choose()
{
    if (const rlim_t seconds = mutant_setting("IVARODE_MUTANT_SECONDS"); seconds != 0) {
        const rlimit processor = {seconds, seconds + 1};
        const rlimit memory = {1UL << 30, 1UL << 30};
        const rlimit file = {1UL << 26, 1UL << 26};
        const rlimit core = {0, 0};
        setrlimit(RLIMIT_CPU, &processor);
        setrlimit(RLIMIT_AS, &memory);
        setrlimit(RLIMIT_FSIZE, &file);
        setrlimit(RLIMIT_CORE, &core);
    }
    return mutant_setting("IVARODE_MUTANT");
}

// A file with a byte for each statement, or null. Opened past the C library, whose calls the tests replace.
inline unsigned char *mutant_map()
{
    const char *path = getenv("IVARODE_MUTANT_REACHED");
    const long fd = path != nullptr ? syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC) : -1;
    struct stat file = {};
    if (fd < 0 || fstat(static_cast<int>(fd), &file) != 0) {
        return nullptr;
    }
    void *map = mmap(nullptr, static_cast<size_t>(file.st_size), PROT_READ | PROT_WRITE, MAP_SHARED,
                     static_cast<int>(fd), 0);
    syscall(SYS_close, fd);
    return map != MAP_FAILED ? static_cast<unsigned char *>(map) : nullptr;
}

inline const unsigned mutant_chosen = mutant_choose();
inline unsigned char *const mutant_reach_map = mutant_map();

inline void mutant_reached(unsigned statement)
{
    if (mutant_reach_map != nullptr) {
        mutant_reach_map[statement] = 1;
    }
}
