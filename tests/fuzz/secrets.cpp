// Secrets files. Whatever a file holds: other entries stay byte for byte, an added entry is read back, a
// removed one is gone, and adding what was not there and removing it again gives the file back.
//
// An input is four lines (user, provider, password, address) and the file.
#include "file.h"
#include "input.h"
#include "platform/command.h"
#include "secrets_reader.h"

#include <algorithm>
#include <optional>
#include <string>

namespace {

using fuzz::promise;
using fuzz::Secret;
using Secrets = std::vector<Secret>;

std::optional<std::string> disk;
bool written = false;

struct Request {
    std::string user, provider, password, address;

    bool is_for(const Secret &entry) const { return entry.names(user, provider); }
    size_t count_in(const Secrets &entries) const
    {
        return static_cast<size_t>(std::count_if(entries.begin(), entries.end(),
                                                 [this](const Secret &entry) { return is_for(entry); }));
    }
};

std::string without(const Secrets &entries, const Request &request)
{
    std::string out;
    for (const Secret &entry : entries) {
        out += request.is_for(entry) ? "" : entry.raw;
    }
    return out;
}

void check_added(const Secrets &before, const Request &request)
{
    const Secrets after = fuzz::read_secrets(*disk);
    promise(request.count_in(after) == 1, "an added pair has one entry");
    const auto added =
        std::find_if(after.begin(), after.end(), [&](const Secret &entry) { return request.is_for(entry); });
    promise(added->words.size() == (request.address.empty() ? 3U : 4U), "an entry has three or four words");
    promise(added->words[2] == request.password, "the password is read back");
    promise(request.address.empty() || added->words[3] == request.address, "the address is read back");

    const std::string kept = without(before, request);
    const std::string others = without(after, request);
    if (request.count_in(before) > 0) {
        promise(others == kept, "other entries stay as they are");
        return;
    }
    promise(others.compare(0, kept.size(), kept) == 0, "other entries stay as they are");
    const std::string more = others.substr(kept.size());
    promise(more.find_first_not_of('\n') == more.npos && more.size() <= 2,
            "nothing but line ends is put behind the last line");
}

void check_removed(const Request &request, const std::string &with_it)
{
    const Secrets before = fuzz::read_secrets(with_it);
    if (request.count_in(before) == 0) {
        promise(cslib_entry_del(request.user.c_str(), request.provider.c_str()) != 0 && !written,
                "what is not there cannot be removed");
        return;
    }
    promise(cslib_entry_del(request.user.c_str(), request.provider.c_str()) == 0, "what is there is removed");
    promise(*disk == without(before, request), "removing leaves the other entries as they are");
}

} // namespace

extern "C" {

int __wrap__ZN6libsys9read_fileEPKcRNS_4textEm(const char *, libsys::text &out, size_t)
{
    out.clear();
    if (!disk) {
        return ENOENT;
    }
    out.append(*disk);
    return 0;
}

int __wrap__ZN6libsys12replace_fileEPKcjSt17basic_string_viewIcSt11char_traitsIcEENS_5linksE(
    const char *, mode_t mode, std::string_view content, libsys::links)
{
    promise(mode == 0600, "a secrets file is for root alone");
    disk = std::string{content};
    written = true;
    return 0;
}

int __wrap__ZN6libsys12make_foldersEPKc(const char *)
{
    return 0;
}

int __wrap__ZN6libsys9file_lock7acquireEPKc(libsys::file_lock *, const char *)
{
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    Request request;
    for (std::string *word : {&request.user, &request.provider, &request.password, &request.address}) {
        const std::string_view line = input.until('\n');
        *word = std::string{line.substr(0, line.find('\0'))};
    }
    const std::string file{input.rest()};
    const Secrets before = fuzz::read_secrets(file);

    disk = file;
    written = false;
    check_removed(request, file);

    disk = file.empty() ? std::nullopt : std::optional{file};
    written = false;
    if (cslib_entry_add(request.user.c_str(), request.provider.c_str(), request.password.c_str(),
                        request.address.c_str()) != 0) {
        promise(!written, "a failed change leaves the file alone");
        return 0;
    }
    check_added(before, request);
    check_removed(request, *disk);
    return 0;
}

} // extern "C"
