#include "rule_late.h"

#include "internal.h"
#include "start.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <syslog.h>

namespace libsys {

namespace {

struct late_removal {
    uint32_t preference;
    uint32_t device;
    rule_removal *remove;
};

// More than a board has WANs and their VLANs; the next one is not put off.
late_removal late[64];
late_removal *late_end = late;

} // namespace

bool put_rule_removal_off(uint32_t preference, uint32_t device, rule_removal *remove)
{
    const auto same = [&](const late_removal &each) {
        return each.preference == preference && each.device == device && each.remove == remove;
    };
    if (!starting()) {
        return false;
    }
    if (std::any_of(late, late_end, same)) {
        return true;
    }
    if (late_end == std::end(late)) {
        return false;
    }
    *late_end++ = {preference, device, remove};
    return true;
}

bool rule_removal_is_put_off(uint32_t preference)
{
    return std::any_of(late, late_end,
                       [&](const late_removal &each) { return each.preference == preference; });
}

void call_rule_removal_off(uint32_t preference)
{
    late_end = std::remove_if(late, late_end,
                              [&](const late_removal &each) { return each.preference == preference; });
}

void make_late_rule_removals()
{
    for (const late_removal *each = late; each != late_end; ++each) {
        if (const int error = each->remove(each->preference, each->device)) {
            log_line(LOG_WARNING, "the policy rule %u cannot be removed: %s", each->preference,
                     strerror(error));
        }
    }
    late_end = late;
}

} // namespace libsys
