/*
 * Makes single system calls of the library fail, or answer in its place, without touching the library: the
 * test program's own definitions of these functions come first for the dynamic linker. Off until a test asks.
 */
#pragma once

#include <functional>
#include <string>

namespace interpose {

// The next `times` calls of "rename", "fsync", "flock", "write" or "fchmod" fail with this error, after
// `skip` of them have passed.
void fail(const std::string &call, int error, int times = 1, int skip = 0);
// How often a call has been made since fail() named it.
int calls(const std::string &call);

// Asks before each of these calls and before each ioctl, ahead of what fail() has set: 0 lets the call
// happen, a positive errno value makes it fail, cut_short makes a write take half of its bytes. Null asks no
// longer.
constexpr int cut_short = -1;
void ask(int (*judge)(const char *call));

// Answers ioctls instead of the kernel while it is set: 0 or more is the result, a negative value -errno.
void answer_ioctl(std::function<int(int fd, unsigned long request, void *argument)> answer);

} // namespace interpose
