// Collects the output of children in one file, each line led by "[name] ". A child that outlives its
// instance, or leaves descendants behind, keeps being heard. Lines longer than 1024 bytes are cut into
// pieces.
#pragma once

#include "bus_headers.h"

#include <list>
#include <string>

namespace lab {

class OutputLog {
public:
    // An empty path: the output goes to standard error. A file that cannot be opened: likewise, with a
    // message.
    explicit OutputLog(const std::string &path);
    OutputLog(const OutputLog &) = delete;
    OutputLog &operator=(const OutputLog &) = delete;
    ~OutputLog();

    // The descriptor a new child shall write to (the caller closes it); -1 when out of descriptors.
    int writer(const std::string &name);
    void line(const std::string &name, const std::string &text);

private:
    struct Reader {
        uloop_fd registration; // first, so that the callback finds the reader
        OutputLog *log;
        std::string name;
        std::string partial;
    };

    static void readable(uloop_fd *registration, unsigned events);
    void take(Reader &reader, const char *bytes, size_t length);
    void finish(Reader &reader);

    int file_;
    std::list<Reader> readers_;
};

} // namespace lab
