// The packages there are, in both configuration folders.
#include "internal.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>

namespace {

// Names in one growing block, each terminated.
class name_block {
public:
    name_block() = default;
    name_block(const name_block &) = delete;
    name_block &operator=(const name_block &) = delete;
    ~name_block() { free(bytes_); }

    bool add(const char *name)
    {
        size_t size = strlen(name) + 1;
        auto *grown = static_cast<char *>(realloc(bytes_, used_ + size));
        if (!grown) {
            return false;
        }
        bytes_ = grown;
        memcpy(bytes_ + used_, name, size);
        used_ += size;
        count_++;
        return true;
    }
    const char *bytes() const { return bytes_; }
    size_t used() const { return used_; }
    size_t count() const { return count_; }

private:
    char *bytes_ = nullptr;
    size_t used_ = 0;
    size_t count_ = 0;
};

bool is_package(const char *folder, const char *name)
{
    char path[PATH_MAX];
    struct stat info;
    int length = snprintf(path, sizeof path, "%s/%s", folder, name);
    return uci::valid_package_name(name) && length < static_cast<int>(sizeof path) &&
           stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

bool collect(const char *folder, name_block &names)
{
    DIR *open_folder = folder ? opendir(folder) : nullptr;
    if (!open_folder) {
        return true;
    }
    bool kept = true;
    while (const dirent *entry = kept ? readdir(open_folder) : nullptr) {
        kept = !is_package(folder, entry->d_name) || names.add(entry->d_name);
    }
    closedir(open_folder);
    return kept;
}

int by_name(const void *a, const void *b)
{
    return strcmp(*static_cast<const char *const *>(a), *static_cast<const char *const *>(b));
}

} // namespace

int uci_list_configs(struct uci_context *ctx, char ***list)
{
    if (!ctx) {
        return UCI_ERR_INVAL;
    }
    if (!list) {
        return uci::set_error(ctx, UCI_ERR_INVAL);
    }
    name_block names;
    if (!collect(ctx->conf2dir, names) || !collect(ctx->confdir, names)) {
        return uci::set_error(ctx, UCI_ERR_MEM);
    }
    size_t table_size = (names.count() + 1) * sizeof(char *);
    auto *block = static_cast<char *>(malloc(table_size + names.used()));
    if (!block) {
        return uci::set_error(ctx, UCI_ERR_MEM);
    }
    auto **table = reinterpret_cast<char **>(block);
    char *name = block + table_size;
    if (names.used() > 0) {
        memcpy(name, names.bytes(), names.used());
    }
    for (size_t i = 0; i < names.count(); i++) {
        table[i] = name;
        name += strlen(name) + 1;
    }
    qsort(table, names.count(), sizeof *table, by_name);
    size_t kept = 0;
    for (size_t i = 0; i < names.count(); i++) {
        if (kept == 0 || strcmp(table[kept - 1], table[i]) != 0) {
            table[kept++] = table[i];
        }
    }
    table[kept] = nullptr;
    *list = table;
    return uci::set_error(ctx, UCI_OK);
}
