// ivarode-dbg: shows and sets the debug word and the counters in shared memory.
#include "debug_area.h"
#include "platform/output.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int exit_usage = 2;

struct named_bit {
    const char *name;
    uint32_t value;
};

constexpr named_bit named_bits[] = {
    {"daemon", netdbg_bit_daemon},
};

void usage(FILE *stream)
{
    fputs("Usage: ivarode-dbg [command]\n"
          "\n"
          "  show             the debug word, the counter and the records (default)\n"
          "  word BITS        set the debug word\n"
          "  on BITS          set these bits of the debug word\n"
          "  off BITS         clear these bits of the debug word\n"
          "  counter NUMBER   set the sample counter\n"
          "  forget           drop the records of null pointers\n"
          "  -h, --help       this text\n"
          "\n"
          "BITS is a number (decimal, 0x... or 0...) or a name: daemon (4).\n"
          "Exit status: 0 done, 1 the shared memory cannot be used, 2 wrong usage.\n",
          stream);
}

// Two objects. Setting bits ahead of the daemon's start is a use, so root makes those that are not there yet;
// anybody else's would be in the daemon's way.
struct areas {
    libsys::debug_area *debug;
    libsys::record_area *records;
};

void *map(const char *name)
{
    void *area =
        libsys::map_debug_object(name, geteuid() == 0 ? libsys::absent::is_made : libsys::absent::is_error);
    if (area == nullptr) {
        fprintf(stderr, "ivarode-dbg: /dev/shm%s: %s\n", name, strerror(errno));
    }
    return area;
}

bool open_areas(areas &opened)
{
    opened.debug = static_cast<libsys::debug_area *>(map(libsys::debug_object));
    opened.records = static_cast<libsys::record_area *>(map(libsys::record_object));
    return opened.debug != nullptr && opened.records != nullptr;
}

bool parse(const char *text, uint64_t most, uint64_t &number)
{
    for (const named_bit &bit : named_bits) {
        if (strcmp(text, bit.name) == 0) {
            number = bit.value;
            return true;
        }
    }
    if (*text < '0' || *text > '9') {
        return false;
    }
    char *rest = nullptr;
    errno = 0;
    number = strtoull(text, &rest, 0);
    return errno == 0 && *rest == '\0' && number <= most;
}

void show(const areas &area)
{
    uint32_t bits = area.debug->bits;
    printf("debug word  0x%08" PRIx32, bits);
    for (const named_bit &bit : named_bits) {
        printf("  %s %s", bit.name, bits & bit.value ? "on" : "off");
    }
    printf("\nsamples     %" PRIu64 "\n", area.debug->samples);
    uint64_t total = area.records->lost;
    for (const libsys::null_record &place : area.records->places) {
        total += place.count;
    }
    printf("null pointers to string operations  %" PRIu64 "\n", total);
    for (const libsys::null_record &place : area.records->places) {
        if (place.count > 0) {
            printf("  %10" PRIu32 "  %.*s:%" PRId32 "\n", place.count,
                   static_cast<int>(sizeof(place.function)), place.function, place.line);
        }
    }
    if (area.records->lost > 0) {
        printf("  %10" PRIu32 "  elsewhere\n", area.records->lost);
    }
}

// False when the command does not exist or lacks a valid value.
bool change(const areas &area, const char *command, const char *value)
{
    uint64_t number = 0;
    if (strcmp(command, "forget") == 0 && value == nullptr) {
        memset(area.records, 0, sizeof *area.records);
        return true;
    }
    if (strcmp(command, "counter") == 0 && value != nullptr && parse(value, UINT64_MAX, number)) {
        area.debug->samples = number;
        return true;
    }
    if (value == nullptr || !parse(value, UINT32_MAX, number)) {
        return false;
    }
    auto bits = static_cast<uint32_t>(number);
    if (strcmp(command, "word") == 0) {
        area.debug->bits = bits;
    } else if (strcmp(command, "on") == 0) {
        area.debug->bits |= bits;
    } else if (strcmp(command, "off") == 0) {
        area.debug->bits &= ~bits;
    } else {
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    const char *command = argc > 1 ? argv[1] : "show";
    if (strcmp(command, "-h") == 0 || strcmp(command, "--help") == 0) {
        usage(stdout);
        return 0;
    }
    areas area;
    if (argc > 3) {
        usage(stderr);
        return exit_usage;
    }
    if (!open_areas(area)) {
        return 1;
    }
    if (strcmp(command, "show") == 0 && argc <= 2) {
        show(area);
    } else if (!change(area, command, argc > 2 ? argv[2] : nullptr)) {
        usage(stderr);
        return exit_usage;
    }
    if (fflush(stdout) != 0) {
        perror("ivarode-dbg");
        return 1;
    }
    return 0;
}
