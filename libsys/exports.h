// The platform interface as the library exports it. Everything else in the library is hidden from the
// outside, so a definition is visible exactly when src/platform declares it and its file includes this
// header.
#pragma once

#include <libubus.h>

#pragma GCC visibility push(default)
#include "platform/board.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/config.h"
#include "platform/events.h"
#include "platform/netdev.h"
#include "platform/output.h"
#include "platform/safestr.h"
#pragma GCC visibility pop
