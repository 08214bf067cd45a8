// lab-jail: what the supervisor starts an instance with a jail through. Of what the router's own helper does
// it does what such a jail without name spaces is for: capabilities, no_new_privs, a filter of the calls of
// the kernel, an empty environment.
//
// Exit status: 2 for wrong options, 125 when the process cannot be confined, 127 when there is no such
// program; else the program's own.
#include "bus_headers.h"
#include "call_filter.h"
#include "command_line.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <linux/capability.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

// In the order of their numbers.
constexpr std::array<std::string_view, 41> names = {"CAP_CHOWN",
                                                    "CAP_DAC_OVERRIDE",
                                                    "CAP_DAC_READ_SEARCH",
                                                    "CAP_FOWNER",
                                                    "CAP_FSETID",
                                                    "CAP_KILL",
                                                    "CAP_SETGID",
                                                    "CAP_SETUID",
                                                    "CAP_SETPCAP",
                                                    "CAP_LINUX_IMMUTABLE",
                                                    "CAP_NET_BIND_SERVICE",
                                                    "CAP_NET_BROADCAST",
                                                    "CAP_NET_ADMIN",
                                                    "CAP_NET_RAW",
                                                    "CAP_IPC_LOCK",
                                                    "CAP_IPC_OWNER",
                                                    "CAP_SYS_MODULE",
                                                    "CAP_SYS_RAWIO",
                                                    "CAP_SYS_CHROOT",
                                                    "CAP_SYS_PTRACE",
                                                    "CAP_SYS_PACCT",
                                                    "CAP_SYS_ADMIN",
                                                    "CAP_SYS_BOOT",
                                                    "CAP_SYS_NICE",
                                                    "CAP_SYS_RESOURCE",
                                                    "CAP_SYS_TIME",
                                                    "CAP_SYS_TTY_CONFIG",
                                                    "CAP_MKNOD",
                                                    "CAP_LEASE",
                                                    "CAP_AUDIT_WRITE",
                                                    "CAP_AUDIT_CONTROL",
                                                    "CAP_SETFCAP",
                                                    "CAP_MAC_OVERRIDE",
                                                    "CAP_MAC_ADMIN",
                                                    "CAP_SYSLOG",
                                                    "CAP_WAKE_ALARM",
                                                    "CAP_BLOCK_SUSPEND",
                                                    "CAP_AUDIT_READ",
                                                    "CAP_PERFMON",
                                                    "CAP_BPF",
                                                    "CAP_CHECKPOINT_RESTORE"};
static_assert(names[CAP_NET_ADMIN] == "CAP_NET_ADMIN" && names[CAP_SETFCAP] == "CAP_SETFCAP");

enum Set { bounding, effective, permitted, inheritable, ambient, set_count };
constexpr std::array<blobmsg_policy, set_count> sets_policy = {{{"bounding", BLOBMSG_TYPE_ARRAY},
                                                                {"effective", BLOBMSG_TYPE_ARRAY},
                                                                {"permitted", BLOBMSG_TYPE_ARRAY},
                                                                {"inheritable", BLOBMSG_TYPE_ARRAY},
                                                                {"ambient", BLOBMSG_TYPE_ARRAY}}};
using Sets = std::array<uint64_t, set_count>;

[[noreturn]] void fail(const std::string &what, const char *why)
{
    fprintf(stderr, "lab-jail: %s: %s\n", what.c_str(), why);
    exit(125);
}

void need(long result, const char *what)
{
    if (result != 0) {
        fail(what, strerror(errno));
    }
}

uint64_t mask_of(blob_attr *array, const std::string &file)
{
    uint64_t mask = 0;
    if (array == nullptr || blobmsg_check_array(array, BLOBMSG_TYPE_STRING) < 0) {
        fail(file, "five lists of names are wanted");
    }
    blob_attr *member = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(member, array, left)
    {
        const std::string_view name = blobmsg_get_string(member);
        size_t number = 0;
        while (number < names.size() && names[number] != name) {
            number++;
        }
        if (number == names.size()) {
            fail(file, "no such capability");
        }
        mask |= uint64_t{1} << number;
    }
    return mask;
}

Sets read_sets(const std::string &file)
{
    blob_buf buffer{};
    blob_buf_init(&buffer, 0);
    if (!blobmsg_add_json_from_file(&buffer, file.c_str())) {
        fail(file, "cannot be read");
    }
    std::array<blob_attr *, set_count> lists{};
    blobmsg_parse(sets_policy.data(), set_count, lists.data(), blob_data(buffer.head),
                  static_cast<unsigned>(blob_len(buffer.head)));
    Sets sets{};
    for (size_t i = 0; i < sets.size(); ++i) {
        sets[i] = mask_of(lists[i], file);
    }
    blob_buf_free(&buffer);
    return sets;
}

void give_up_the_rest(const Sets &sets)
{
    for (unsigned long number = 0; prctl(PR_CAPBSET_READ, number, 0, 0, 0) >= 0; ++number) {
        if ((sets[bounding] >> number & 1) == 0) {
            need(prctl(PR_CAPBSET_DROP, number, 0, 0, 0), "giving up a capability");
        }
    }
    need(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0), "ambient capabilities");
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const auto words_from = [&](unsigned bit) {
        return __user_cap_data_struct{static_cast<uint32_t>(sets[effective] >> bit),
                                      static_cast<uint32_t>(sets[permitted] >> bit),
                                      static_cast<uint32_t>(sets[inheritable] >> bit)};
    };
    std::array<__user_cap_data_struct, 2> words{words_from(0), words_from(32)};
    need(syscall(SYS_capset, &header, words.data()), "capabilities");
    for (unsigned long number = 0; number < names.size(); ++number) {
        if ((sets[ambient] >> number & 1) != 0) {
            need(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, number, 0, 0), "ambient capabilities");
        }
    }
}

// Nothing of the supervisor's own, but the emulated hardware, which a board has whatever its environment.
void empty_environment(const std::vector<std::string> &imported)
{
    std::vector<std::pair<std::string, std::string>> kept;
    for (const std::string &name : imported) {
        if (const char *value = getenv(name.c_str())) {
            kept.emplace_back(name, value);
        }
    }
    const char *hardware = getenv("LD_PRELOAD");
    const std::string preload = hardware != nullptr ? hardware : "";
    clearenv();
    setenv("container", "ujail", 1);
    setenv("PWD", "/", 1);
    for (const auto &[name, value] : kept) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if (!preload.empty()) {
        setenv("LD_PRELOAD", preload.c_str(), 1);
    }
}

constexpr const char *usage =
    "usage: lab-jail [options] -- PROGRAM [ARGUMENT]...\n"
    "Starts a program with few privileges and an empty environment.\n\n"
    "  --capabilities FILE   keep the capabilities that this file lists, and no others\n"
    "  --no-new-privs        none can be had by programs that it starts\n"
    "  --seccomp FILE        only the calls of the kernel that this file lists, also for what it starts\n"
    "  --import NAME         keep this variable of the environment; may be given again\n"
    "  --help                this text\n";

} // namespace

int main(int argc, char **argv)
{
    std::string capabilities;
    std::string calls;
    std::vector<std::string> imported;
    bool no_new_privs = false;
    lab::CommandLine line("lab-jail", usage);
    line.text("capabilities", capabilities);
    line.flag("no-new-privs", no_new_privs, true);
    line.text("seccomp", calls);
    line.value("import", [&](const std::string &name) { imported.push_back(name); });
    if (line.parse(argc, argv)) {
        line.wrong("no program");
    }
    char *const *words = argv + optind;
    if (!capabilities.empty()) {
        give_up_the_rest(read_sets(capabilities));
    }
    if (no_new_privs) {
        need(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "no_new_privs");
    }
    need(chdir("/"), "/");
    empty_environment(imported);
    try {
        // The last step: those before it make calls that the program is not to make.
        if (!calls.empty()) {
            lab::filter_calls(calls);
        }
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "lab-jail: %s\n", error.what());
        return 125;
    }
    execv(words[0], words);
    fprintf(stderr, "cannot execute %s: %s\n", words[0], strerror(errno));
    return 127;
}
