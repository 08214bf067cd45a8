#include "files.h"

#include "check.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace lab {
namespace {

void write_all(int fd, std::string_view text, const std::string &path)
{
    while (!text.empty()) {
        ssize_t n = write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        text.remove_prefix(static_cast<size_t>(check(static_cast<int>(n), path)));
    }
}

void write_with(const std::string &path, std::string_view text, int flags, unsigned mode)
{
    UniqueFd fd(check(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, mode), path));
    write_all(fd.get(), text, path);
}

void copy_file(const std::string &from, const std::string &to, unsigned mode)
{
    UniqueFd in(check(open(from.c_str(), O_RDONLY | O_CLOEXEC), from));
    UniqueFd out(check(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600), to));
    std::vector<char> buffer(1U << 16);
    ssize_t n = 0;
    while ((n = read(in.get(), buffer.data(), buffer.size())) > 0) {
        write_all(out.get(), std::string_view(buffer.data(), static_cast<size_t>(n)), to);
    }
    check(static_cast<int>(n), from);
    check(fchmod(out.get(), mode), to);
}

} // namespace

void make_dirs(const std::string &path, unsigned mode)
{
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        throw std::runtime_error(path + ": " + error.message());
    }
    check(chmod(path.c_str(), mode), path);
}

void write_text(const std::string &path, std::string_view text, unsigned mode)
{
    write_with(path, text, O_TRUNC, mode);
    check(chmod(path.c_str(), mode), path);
}

void append_text(const std::string &path, std::string_view text)
{
    write_with(path, text, O_APPEND, 0644);
}

// A file replaces a link of its name; a folder goes to where a link of its name leads.
void copy_tree(const std::string &from, const std::string &to)
{
    struct stat info {};
    check(lstat(from.c_str(), &info), from);
    if (S_ISDIR(info.st_mode)) {
        struct stat there {};
        std::string target = to.empty() ? "/" : to;
        if (stat(target.c_str(), &there) < 0 || !S_ISDIR(there.st_mode)) {
            unlink(to.c_str());
            make_dirs(to, info.st_mode & 07777);
        }
        for (const auto &entry : fs::directory_iterator(from)) {
            std::string name = entry.path().filename();
            copy_tree(from + "/" + name, to + "/" + name);
        }
        return;
    }
    std::string folder = fs::path(to).parent_path();
    if (!fs::is_directory(folder)) {
        make_dirs(folder);
    }
    unlink(to.c_str());
    if (S_ISLNK(info.st_mode)) {
        check(symlink(fs::read_symlink(from).c_str(), to.c_str()), to);
    } else if (S_ISREG(info.st_mode)) {
        copy_file(from, to, info.st_mode & 07777);
    }
}

void copy_if_there(const std::string &from, const std::string &to)
{
    if (fs::exists(fs::symlink_status(from))) {
        copy_tree(from, to);
    }
}

void write_setting(std::string key, std::string_view value)
{
    std::replace(key.begin(), key.end(), '.', '/');
    write_with("/proc/sys/" + key, value, 0, 0);
}

} // namespace lab
