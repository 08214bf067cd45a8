#include "start.h"

#include "iptables_refill.h"
#include "rule_late.h"

#include <cstdlib>
#include <utility>

namespace libsys {

namespace {

bool underway = false;

} // namespace

void begin_start()
{
    underway = underway || atexit(end_start) == 0;
}

bool starting()
{
    return underway;
}

void end_start()
{
    if (std::exchange(underway, false)) {
        finish_refill();
        make_late_rule_removals();
    }
}

} // namespace libsys
