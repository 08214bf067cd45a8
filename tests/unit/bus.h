// The bus library's header, without the macros by which it takes names of the standard library. Every test is
// compiled with this before all else.
#pragma once

#include <libubus.h>

#undef __constructor
#undef __destructor
