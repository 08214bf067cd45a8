// Finding and reading package files.
#include "internal.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

int open_to_read(int folder, const char *path, int more_flags)
{
    int fd;
    do {
        fd = openat(folder, path, O_RDONLY | O_CLOEXEC | more_flags);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// A whole file in memory with one byte to spare behind it.
class file_text {
public:
    file_text() = default;
    file_text(const file_text &) = delete;
    file_text &operator=(const file_text &) = delete;
    ~file_text() { free(text_); }

    // UCI_OK or why not. Never waits for a pipe or a device that bears a package's name. A private file is
    // not there when it is somebody else's.
    int read_at(int folder, const char *path, bool is_private);
    // Gives the text to the package; null without memory.
    char *hand_to(uci_package *package);
    size_t length() const { return length_; }

private:
    int read_open(int fd, bool is_private);

    char *text_ = nullptr;
    size_t length_ = 0;
};

int file_text::read_at(int folder, const char *path, bool is_private)
{
    int fd = open_to_read(folder, path, O_NONBLOCK);
    if (fd < 0) {
        return errno == ENOENT || errno == ENOTDIR ? UCI_ERR_NOTFOUND : UCI_ERR_IO;
    }
    int code = read_open(fd, is_private);
    close(fd);
    return code;
}

char *file_text::hand_to(uci_package *package)
{
    return uci::keep_text(package, text_) ? std::exchange(text_, nullptr) : nullptr;
}

int file_text::read_open(int fd, bool is_private)
{
    struct stat info;
    if (fstat(fd, &info) != 0) {
        return UCI_ERR_IO;
    }
    if (!S_ISREG(info.st_mode) || (is_private && info.st_uid != geteuid())) {
        return UCI_ERR_NOTFOUND;
    }
    // A commit holds the lock exclusively while the file changes.
    while (flock(fd, LOCK_SH) != 0) {
        if (errno != EINTR) {
            return UCI_ERR_IO;
        }
    }
    size_t room = 0;
    for (;;) {
        if (room - length_ < 2) {
            room = room ? room * 2 : static_cast<size_t>(info.st_size) + 2;
            auto *grown = static_cast<char *>(realloc(text_, room));
            if (!grown) {
                return UCI_ERR_MEM;
            }
            text_ = grown;
        }
        ssize_t got = read(fd, text_ + length_, room - length_ - 1);
        if (got == 0) {
            return UCI_OK;
        }
        if (got > 0) {
            length_ += static_cast<size_t>(got);
        } else if (errno != EINTR) {
            return UCI_ERR_IO;
        }
    }
}

bool join(char (&path)[PATH_MAX], const char *folder, const char *name)
{
    int length = snprintf(path, sizeof path, "%s/%s", folder, name);
    return length > 0 && static_cast<size_t>(length) < sizeof path;
}

bool overridden(const uci_context *ctx, const char *name, char (&path)[PATH_MAX])
{
    return ctx->conf2dir && join(path, ctx->conf2dir, name) && access(path, F_OK) == 0;
}

// A folder of saved changes. Nothing is taken from one that somebody else can put files into: the maker of
// the usual one, in a place open to all, would have a say in everybody's configuration.
int open_private_folder(const char *path)
{
    int fd = open_to_read(AT_FDCWD, path, O_DIRECTORY | O_NOFOLLOW);
    struct stat info;
    if (fd >= 0 &&
        (fstat(fd, &info) != 0 || info.st_uid != geteuid() || (info.st_mode & (S_IWGRP | S_IWOTH)))) {
        close(fd);
        fd = -1;
    }
    return fd;
}

int read_deltas(uci_context *ctx, uci_package *package)
{
    uci_element *element;
    uci_foreach_element(&ctx->delta_path, element)
    {
        int folder = open_private_folder(element->name);
        if (folder < 0) {
            continue;
        }
        file_text file;
        int code = file.read_at(folder, package->e.name, true);
        close(folder);
        if (code == UCI_OK) {
            char *text = file.hand_to(package);
            code = text ? uci::apply_delta(package, text, file.length()) : UCI_ERR_MEM;
        }
        if (code == UCI_ERR_MEM) {
            return code;
        }
    }
    return UCI_OK;
}

} // namespace

int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package)
{
    if (!ctx) {
        return UCI_ERR_INVAL;
    }
    ctx->pctx->reason = nullptr;
    if (!name || !package) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    char path[PATH_MAX];
    bool direct = name[0] == '/' || strncmp(name, "./", 2) == 0;
    bool overriding = false;
    if (direct) {
        if (snprintf(path, sizeof path, "%s", name) >= static_cast<int>(sizeof path)) {
            return uci::set_error(ctx, UCI_ERR_INVAL);
        }
        name = strrchr(name, '/') + 1;
    } else if (name[0] == '.') {
        return uci::set_error(ctx, UCI_ERR_NOTFOUND);
    } else if (!uci::valid_package_name(name)) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    } else {
        overriding = overridden(ctx, name, path);
        if (!overriding && !join(path, ctx->confdir, name)) {
            return uci::set_error(ctx, UCI_ERR_INVAL);
        }
    }
    if (uci_lookup_package(ctx, name)) {
        return uci::set_error(ctx, UCI_ERR_DUPLICATE);
    }
    file_text file;
    if (int code = file.read_at(AT_FDCWD, path, false)) {
        return uci::set_error(ctx, code);
    }
    uci_package *made = uci::new_package(ctx, name, path);
    if (!made) {
        return uci::set_error(ctx, UCI_ERR_MEM);
    }
    char *text = file.hand_to(made);
    made->has_delta = !direct;
    made->uses_conf2 = overriding;
    int code = text ? uci::parse_package(ctx, made, text, file.length()) : UCI_ERR_MEM;
    if (code == UCI_OK && !direct) {
        code = read_deltas(ctx, made);
    }
    if (code != UCI_OK) {
        uci::free_package(made);
        return uci::set_error(ctx, code);
    }
    uci::list_insert_before(&ctx->root, &made->e.list);
    *package = made;
    return uci::set_error(ctx, UCI_OK);
}

int uci_unload(struct uci_context *ctx, struct uci_package *p)
{
    if (!ctx) {
        return UCI_ERR_INVAL;
    }
    if (!p) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    uci::free_package(p);
    return uci::set_error(ctx, UCI_OK);
}
