// Running a program without a shell.
//
// argument_list   Owns the words of a command line.
// run()           Runs a program to its end and gives 0 or the errno value of what kept it from running, or
// from being heard: EFBIG when it said too much, ETIMEDOUT when it was silent for too long; it is ended then.
// It works inside an event loop that reaps every child it hears of: the loop cannot run in between.
//
// Functions that can run out of memory give 0 or a positive errno value.
#pragma once

#include "text.h"

#include <cstddef>

namespace libsys {

class argument_list {
public:
    argument_list() = default;
    argument_list(const argument_list &) = delete;
    argument_list &operator=(const argument_list &) = delete;
    ~argument_list() { clear(); }

    // One word, as it is.
    int add(const char *word) { return insert(count_, word); }
    int insert(size_t place, const char *word);
    // The words of a line. Blanks, tabs and line ends separate them; quotes join as a shell's do: everything
    // between single quotes stands for itself, and between double quotes a backslash before a double quote or
    // a backslash is taken out. Nothing else has a meaning. EINVAL when a quote is left open.
    int add_words(const char *line);
    void remove(size_t place);
    void clear();

    size_t count() const { return count_; }
    const char *operator[](size_t place) const { return words_[place]; }
    // Ends with a null pointer. There is one even without any word.
    char *const *argv() const;

private:
    char **words_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

enum class capture {
    output,    // standard output; the program's errors go where ours go
    everything // standard output and errors together
};

// The program is arguments[0], looked for in PATH and in the folders of system programs. *status: exit
// status, or 128 and the number of the signal that ended it.
int run(const argument_list &arguments, capture what, text *into, int *status);

} // namespace libsys
