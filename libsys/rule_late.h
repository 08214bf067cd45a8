// Policy rules whose removal a start has put off (start.h).
#pragma once

#include <cstdint>

namespace libsys {

// How a removal is made when its time has come: 0 or a positive errno value.
using rule_removal = int(uint32_t preference, uint32_t device);

// False where the removal is to be made at once: no start is under way, or there is no more room.
bool put_rule_removal_off(uint32_t preference, uint32_t device, rule_removal *remove);
bool rule_removal_is_put_off(uint32_t preference);
void call_rule_removal_off(uint32_t preference);
// What fails is reported: nobody waits for the result any longer.
void make_late_rule_removals();

} // namespace libsys
