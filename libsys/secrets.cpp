// The CHAP secrets that pppd reads: one line for each pair of client and server, "client server secret
// [address]".
//
// The file belongs to its administrator. Lines other than the pair in question stay byte for byte as they
// are, comments and odd ones included; the pair's own line is replaced where it stands.
#include "exports.h"
#include "file.h"
#include "secrets_file.h"

namespace {

using libsys::shown;

constexpr const char *secrets_path = "/etc/ppp/chap-secrets";
constexpr const char *lock_folder = "/var/run/ivarode";
constexpr const char *lock_path = "/var/run/ivarode/chap-secrets.lock";
constexpr size_t largest_file = 8 << 20;

// The file as it is now, locked against other writers of ours; no file is an empty one.
int open_secrets(libsys::file_lock &lock, libsys::text &content)
{
    if (int error = libsys::make_folders(lock_folder)) {
        return error;
    }
    if (int error = lock.acquire(lock_path)) {
        return error;
    }
    int error = libsys::read_file(secrets_path, content, largest_file);
    return error == ENOENT ? 0 : error;
}

int save(const libsys::text &content)
{
    if (!content.ok()) {
        return ENOMEM;
    }
    return libsys::replace_file(secrets_path, 0600, content.view(), libsys::links::follow);
}

int add(const char *user, const char *provider, const char *password, const char *ipaddr)
{
    if (user == nullptr || provider == nullptr || password == nullptr || ipaddr == nullptr || !*user ||
        !*provider) {
        return EINVAL;
    }
    // To pppd this is the name of a file with the secret, quoted or not.
    if (password[0] == '@') {
        return EINVAL;
    }
    for (const char *word : {user, provider, password, ipaddr}) {
        if (!libsys::secrets_word_possible(word)) {
            return EINVAL;
        }
    }
    libsys::file_lock lock;
    libsys::text before;
    if (int error = open_secrets(lock, before)) {
        return error;
    }
    libsys::text entry;
    libsys::append_secret(entry, user, provider, password, ipaddr);
    libsys::text after;
    libsys::replaced_secrets result =
        libsys::replace_secret(before.view(), user, provider, entry.view(), after);
    if (result.found == 0) {
        if (result.open) {
            return EBADMSG;
        }
        // A backslash at the very end would take the newline for itself.
        if (!result.ended && after.view().back() == '\\') {
            after.append('\n');
        }
        after.append(result.ended ? "" : "\n");
        after.append(entry.view());
    }
    return entry.ok() ? save(after) : ENOMEM;
}

int remove(const char *user, const char *provider)
{
    if (user == nullptr || provider == nullptr) {
        return EINVAL;
    }
    libsys::file_lock lock;
    libsys::text before;
    if (int error = open_secrets(lock, before)) {
        return error;
    }
    libsys::text after;
    if (libsys::replace_secret(before.view(), user, provider, {}, after).found == 0) {
        return after.ok() ? ENOENT : ENOMEM;
    }
    return save(after);
}

} // namespace

// The password stays out of every message.
int cslib_entry_add(const char *user, const char *provider, const char *password, const char *ipaddr)
{
    int error = add(user, provider, password, ipaddr);
    return error == 0 ? 0
                      : libsys::fail(error, "cslib_entry_add", "%s, %s, %s", shown(user), shown(provider),
                                     shown(ipaddr));
}

int cslib_entry_del(const char *user, const char *provider)
{
    int error = remove(user, provider);
    return error == 0 ? 0 : libsys::fail(error, "cslib_entry_del", "%s, %s", shown(user), shown(provider));
}
