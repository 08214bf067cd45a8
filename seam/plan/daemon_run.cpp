#include "plan/daemon_run.h"

#include "plan/options.h"
#include "text.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace seam::plan {

namespace {

// On the slowest board a daemon needs a tenth of them.
constexpr unsigned processor_limit_s = 5;
constexpr unsigned limit_s = 15;

std::string own_folder()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    const std::string own{path, static_cast<size_t>(length < 0 ? 0 : length)};
    return own.substr(0, own.rfind('/'));
}

// A file without a name. A program that inherits it finds it by a path.
class MemoryFile {
public:
    explicit MemoryFile(const char *name) : fd_{memfd_create(name, 0)} {}
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    ~MemoryFile()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    int fd() const { return fd_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    bool fill(const std::string &text) const
    {
        return write(fd_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

private:
    int fd_;
};

[[noreturn]] void become(const std::string &program, const MemoryFile &script, const MemoryFile &output)
{
    const rlimit processor{processor_limit_s, processor_limit_s};
    setrlimit(RLIMIT_CPU, &processor);
    alarm(limit_s);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(output.fd(), STDOUT_FILENO);
    dup2(output.fd(), STDERR_FILENO);
    const std::string library = world_library();
    // The second for loaders that look for a library by its name, wherever one was loaded from before.
    std::string environment[] = {"LD_PRELOAD=" + library,
                                 "LD_LIBRARY_PATH=" + library.substr(0, library.rfind('/')),
                                 "IVARODE_SCRIPT=" + script.path()};
    char *const all[] = {environment[0].data(), environment[1].data(), environment[2].data(), nullptr};
    std::string name = program;
    char *const arguments[] = {name.data(), nullptr};
    execve(program.c_str(), arguments, all);
    std::fprintf(stderr, "%s: %s\n", program.c_str(), std::strerror(errno));
    _exit(127);
}

} // namespace

std::string daemon_beside()
{
    return own_folder() + "/ivarode";
}

std::string world_library()
{
    return own_folder() + "/../lib/ivarode-plan/libsys.so";
}

bool run_daemon(const std::string &program, const std::string &script, DaemonRun &run)
{
    for (const std::string &file : {program, world_library()}) {
        if (access(file.c_str(), file == program ? X_OK : R_OK) != 0) {
            complain(file + ": " + std::strerror(errno));
            return false;
        }
    }
    const MemoryFile script_file{"script"};
    const MemoryFile trace_file{"trace"};
    const MemoryFile output{"output"};
    if (!script_file.fill("trace\t" + trace_file.path() + "\n" + script)) {
        complain(std::string{"no memory for a script: "} + std::strerror(errno));
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        become(program, script_file, output);
    }
    if (child < 0 || waitpid(child, &run.status, 0) != child) {
        complain(program + ": " + std::strerror(errno));
        return false;
    }
    run.trace = file_text(trace_file.path()).value_or("");
    run.said = file_text(output.path()).value_or("");
    return true;
}

} // namespace seam::plan
