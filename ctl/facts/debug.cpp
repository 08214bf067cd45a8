// Debug word, sample counter and records of null pointers, in shared memory.

#include "facts/debug.h"

#include "gather.h"
#include "libsys/debug_area.h"
#include "platform/output.h"
#include "report.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

struct named_bit {
    const char *name;
    uint32_t value;
};

constexpr named_bit named_bits[] = {
    {"daemon", netdbg_bit_daemon},
};

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
        complain("/dev/shm%s: %s", name, strerror(errno));
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

void put_record(const libsys::null_record &place, json_object *made)
{
    put_number(made, "count", place.count);
    char function[sizeof(place.function) + 1];
    snprintf(function, sizeof(function), "%.*s", static_cast<int>(sizeof(place.function)), place.function);
    put(made, "function", function);
    put_number(made, "line", place.line);
}

void add_facts(const areas &area, json_object *facts)
{
    const uint32_t bits = area.debug->bits;
    put_number(facts, "word", bits);
    for (const named_bit &bit : named_bits) {
        put_flag(facts, bit.name, (bits & bit.value) != 0);
    }
    json_object_object_add(facts, "samples", json_object_new_uint64(area.debug->samples));
    json_object *places = put_list(facts, "places");
    int64_t total = area.records->lost;
    for (const libsys::null_record &place : area.records->places) {
        if (place.count > 0) {
            total += place.count;
            put_record(place, append_table(places));
        }
    }
    put_number(facts, "null_pointers", total);
    put_number(facts, "elsewhere", area.records->lost);
}

// Words and what they do to the debug word.
struct change {
    const char *name;
    uint32_t (*to)(uint32_t word, uint32_t bits);
    bool has_default;
};

constexpr change changes[] = {
    {"on", [](uint32_t word, uint32_t bits) { return word | bits; }, true},
    {"off", [](uint32_t word, uint32_t bits) { return word & ~bits; }, true},
    {"word", [](uint32_t, uint32_t bits) { return bits; }, false},
};

// False when the words say nothing that can be done.
bool make_change(const areas &area, const words &given)
{
    const char *value = given[1];
    uint64_t number = 0;
    if (strcmp(given[0], "forget") == 0 && value == nullptr) {
        memset(area.records, 0, sizeof *area.records);
        return true;
    }
    if (strcmp(given[0], "counter") == 0 && value != nullptr && parse(value, UINT64_MAX, number)) {
        area.debug->samples = number;
        return true;
    }
    for (const change &each : changes) {
        if (strcmp(given[0], each.name) == 0 && (value != nullptr || each.has_default) &&
            parse(value != nullptr ? value : named_bits[0].name, UINT32_MAX, number)) {
            area.debug->bits = each.to(area.debug->bits, static_cast<uint32_t>(number));
            return true;
        }
    }
    return false;
}

} // namespace

int gather_debug(const words &given, json_object *facts)
{
    areas area = {};
    const bool shows = given.count == 0 || (given.count == 1 && strcmp(given[0], "show") == 0);
    if (given.count > 2) {
        complain("too many words behind debug");
        return wrong_usage;
    }
    if (!open_areas(area)) {
        return failed;
    }
    if (shows) {
        add_facts(area, facts);
    } else if (!make_change(area, given)) {
        complain("debug %.40s %.40s is no command; debug --help lists those there are", given[0],
                 given[1] != nullptr ? given[1] : "");
        return wrong_usage;
    }
    return done;
}

bool read_samples(uint64_t *samples)
{
    auto *area = static_cast<libsys::debug_area *>(
        libsys::map_debug_object(libsys::debug_object, libsys::absent::is_error));
    if (area == nullptr) {
        return false;
    }
    *samples = *const_cast<volatile uint64_t *>(&area->samples);
    munmap(area, libsys::debug_object_size);
    return true;
}

} // namespace ctl
