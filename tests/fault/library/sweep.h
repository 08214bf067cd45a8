/*
 * One operation under every failure of every call it makes.
 *
 * The operation runs once undisturbed, in a process of its own, which counts its calls. Then, each time in a
 * fresh process, so that the library knows nothing yet, one occurrence of one call fails, and it must hold:
 *   - the process lives;
 *   - a harmless failure (an interruption, a part of the bytes) does not show;
 *   - after any other the operation is done, or it reports an error: errno is set and one debug line told;
 *   - what it was to change is then as before, where the operation promises that, and no new file lies about;
 *   - the same operation once more, undisturbed, does its work;
 *   - with it done, no more descriptors are open and no more memory is held than after the undisturbed run.
 */
#pragma once

#include "seam.h"

#include <functional>
#include <string>

struct Operation {
    std::string name;
    std::function<void()> prepare; // the same state each time
    std::function<int()> run;      // 0, or another value with errno
    // What the operation is about, as a text; compared, never read.
    std::function<std::string()> state = [] { return std::string(); };
    bool all_or_nothing = false;
    bool reports = true;                   // by errno and a debug line
    bool own_lines = false;                // and by lines of its own before that one
    bool once = false;                     // a second run after a first that worked is an error
    std::function<void()> recover = [] {}; // what the caller does before it tries again
    // Failures of calls that do not keep the promises, with the reason beside the table.
    std::function<bool(const seam::Fault &)> excepted = [](const seam::Fault &) { return false; };
};

// Prints "NAME injections: N", fails the test for each broken promise, and gives N.
unsigned sweep(const Operation &operation);

// The operation killed at each of its calls: what it is about is then as before or as it is to be, and the
// same operation once more does its work, whatever half-made files lie about. Prints "NAME kills: N" and
// gives N.
unsigned sweep_kills(const Operation &operation);

// Every file below some folders: name, mode and content; lock files left out, as they stay for good.
std::string files_below(std::initializer_list<const char *> folders);
