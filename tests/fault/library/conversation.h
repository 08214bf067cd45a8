// The bus library from both ends: an object and a caller, on two connections of one loop, which connect,
// register, look up, call, answer, send an event and hear it, and part. Nothing waits for longer than a
// second.
#pragma once

// 0 when all of it worked. Nothing stays open or allocated.
int converse();
