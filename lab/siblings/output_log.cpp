#include "output_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace lab {

namespace {

constexpr size_t longest_line = 1024;

} // namespace

OutputLog::OutputLog(const std::string &path) : file_(-1)
{
    if (!path.empty()) {
        file_ = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (file_ < 0) {
            fprintf(stderr, "lab-siblings: cannot open %s: %s\n", path.c_str(), strerror(errno));
        }
    }
}

OutputLog::~OutputLog()
{
    while (!readers_.empty()) {
        finish(readers_.front());
    }
    if (file_ >= 0) {
        close(file_);
    }
}

int OutputLog::writer(const std::string &name)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) {
        return -1;
    }
    readers_.push_back({{}, this, name, ""});
    Reader &reader = readers_.back();
    reader.registration.cb = readable;
    reader.registration.fd = ends[0];
    uloop_fd_add(&reader.registration, ULOOP_READ);
    return ends[1];
}

void OutputLog::line(const std::string &name, const std::string &text)
{
    const std::string whole = "[" + name + "] " + text + "\n";
    // One write, so that lines of several writers to the same file stay whole. A full disk loses the line.
    if (write(file_ >= 0 ? file_ : STDERR_FILENO, whole.data(), whole.size()) < 0) {
        return;
    }
}

void OutputLog::take(Reader &reader, const char *bytes, size_t length)
{
    reader.partial.append(bytes, length);
    for (size_t end = 0; !reader.partial.empty();) {
        end = reader.partial.find('\n');
        if (end == std::string::npos && reader.partial.size() < longest_line) {
            return;
        }
        const size_t cut = std::min(end, longest_line);
        line(reader.name, reader.partial.substr(0, cut));
        reader.partial.erase(0, cut + (cut == end ? 1 : 0));
    }
}

void OutputLog::finish(Reader &reader)
{
    if (!reader.partial.empty()) {
        line(reader.name, reader.partial);
    }
    uloop_fd_delete(&reader.registration);
    close(reader.registration.fd);
    readers_.remove_if([&](const Reader &other) { return &other == &reader; });
}

void OutputLog::readable(uloop_fd *registration, unsigned)
{
    auto &reader = *reinterpret_cast<Reader *>(registration);
    char buffer[4096];
    ssize_t length = 0;
    // After a hang-up the loop has dropped the descriptor already: everything must be taken now.
    do {
        length = read(registration->fd, buffer, sizeof(buffer));
        if (length > 0) {
            reader.log->take(reader, buffer, static_cast<size_t>(length));
        }
    } while ((length > 0 && registration->error) || (length < 0 && errno == EINTR));
    if (length == 0 || (length < 0 && errno != EAGAIN)) {
        reader.log->finish(reader);
    }
}

} // namespace lab
