// The way behind the descriptions of calls/ in this library: the world answers (call.h).
#pragma once

#include "call.h"
