#include "sandbox.h"

#include "../argv.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string reason(const char *what)
{
    return std::string("needs root and namespaces: ") + what + ": " + strerror(errno);
}

bool bind_descriptor(int fd, const std::string &onto)
{
    std::string from = "/proc/self/fd/" + std::to_string(fd);
    return mount(from.c_str(), onto.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

// What programs started by the library need of the real /etc.
bool furnish_etc(int old_etc)
{
    for (const char *name : {"ld.so.cache", "passwd", "group", "nsswitch.conf", "protocols", "services",
                             "ethertypes", "xtables.conf", "localtime"}) {
        std::error_code ignored; // most of them are optional on a small system
        fs::copy_file("/proc/self/fd/" + std::to_string(old_etc) + "/" + name, std::string("/etc/") + name,
                      ignored);
    }
    int alternatives = openat(old_etc, "alternatives", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (alternatives < 0) {
        return errno == ENOENT;
    }
    bool bound = mkdir("/etc/alternatives", 0755) == 0 && bind_descriptor(alternatives, "/etc/alternatives");
    close(alternatives);
    return bound;
}

bool loopback_up()
{
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return up;
}

std::string build_folder()
{
    return fs::path(program_folder()).parent_path();
}

std::string drain(int fd)
{
    std::string text;
    char block[4096];
    for (ssize_t got; (got = read(fd, block, sizeof block)) != 0;) {
        if (got > 0) {
            text.append(block, static_cast<size_t>(got));
        } else if (errno != EINTR) {
            break;
        }
    }
    return text;
}

std::string from_start(int fd)
{
    struct stat info {};
    fstat(fd, &info);
    std::string text(static_cast<size_t>(info.st_size), '\0');
    ssize_t got = pread(fd, text.data(), text.size(), 0);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
}

} // namespace

Sandbox::Sandbox()
{
    if (geteuid() != 0) {
        why_not_ = "needs root";
        return;
    }
    std::string folder = build_folder();
    if (unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC) != 0) {
        why_not_ = reason("unshare");
        return;
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        why_not_ = reason("private mounts");
        return;
    }
    int build = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    int old_etc = open("/etc", O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (const char *place : {"/etc", "/run", "/tmp", "/dev/shm", "/var/log"}) {
        if (mount("tmpfs", place, "tmpfs", 0, "mode=0755,size=16m") != 0) {
            why_not_ = reason(place);
            return;
        }
    }
    // The kernel shows the devices of a network namespace only in a sysfs mounted from inside of it.
    mount("sysfs", "/sys", "sysfs", MS_RDONLY, nullptr);
    if (!furnish_etc(old_etc)) {
        why_not_ = reason("/etc");
        return;
    }
    if (access(folder.c_str(), F_OK) != 0) {
        std::error_code error;
        fs::create_directories(folder, error);
        if (error || !bind_descriptor(build, folder)) {
            why_not_ = reason(folder.c_str());
            return;
        }
    }
    close(build);
    close(old_etc);
    if (!loopback_up()) {
        why_not_ = reason("loopback device");
    }
}

StderrCapture::StderrCapture()
{
    saved_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    file_ = memfd_create("stderr", MFD_CLOEXEC);
    if (saved_ < 0 || file_ < 0 || dup2(file_, STDERR_FILENO) < 0) {
        abort();
    }
}

StderrCapture::~StderrCapture()
{
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(file_);
}

std::string StderrCapture::text() const
{
    return from_start(file_);
}

std::string read_file(const std::string &path)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        ADD_FAILURE() << path << ": " << strerror(errno);
        return {};
    }
    std::string text = drain(fd);
    close(fd);
    return text;
}

void write_file(const std::string &path, std::string_view text, mode_t mode)
{
    fs::create_directories(fs::path(path).parent_path());
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0 || fchmod(fd, mode) != 0 ||
        write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        ADD_FAILURE() << path << ": " << strerror(errno);
    }
    if (fd >= 0) {
        close(fd);
    }
}

bool file_exists(const std::string &path)
{
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

std::string program_folder()
{
    // Asked once, before the namespaces change: below a changed root the kernel would then tell a path that
    // begins above it.
    static const std::string folder = [] {
        char path[PATH_MAX];
        ssize_t length = readlink("/proc/self/exe", path, sizeof path);
        return fs::path(std::string(path, length > 0 ? static_cast<size_t>(length) : 0)).parent_path();
    }();
    return folder;
}

Finished run_program(const std::vector<std::string> &argv)
{
    int out = memfd_create("out", MFD_CLOEXEC);
    int err = memfd_create("err", MFD_CLOEXEC);
    const std::vector<char *> words = argv_of(argv);
    pid_t child = fork();
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execv(words[0], words.data());
        _exit(127);
    }
    int state = 0;
    while (waitpid(child, &state, 0) < 0 && errno == EINTR) {
    }
    Finished finished{WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state), from_start(out),
                      from_start(err)};
    close(out);
    close(err);
    return finished;
}
