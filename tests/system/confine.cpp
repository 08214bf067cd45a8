// confine CAPABILITIES PROGRAM [ARGUMENT]...: what a supervisor does before it starts a service with a
// capability list and no_new_privs. CAPABILITIES is a list of numbers with commas; every other one is given
// up for good. Exit status 125 when that cannot be done, else the program's own.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char *what)
{
    perror(what);
    exit(125);
}

uint64_t parse(const char *list)
{
    uint64_t kept = 0;
    for (char *end = nullptr; *list; list = *end == ',' ? end + 1 : end) {
        unsigned long number = strtoul(list, &end, 10);
        if (end == list || number > 63 || (*end && *end != ',')) {
            fprintf(stderr, "confine: numbers with commas, not %s\n", list);
            exit(125);
        }
        kept |= uint64_t{1} << number;
    }
    return kept;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: confine CAPABILITIES PROGRAM [ARGUMENT]...\n");
        return 125;
    }
    const uint64_t kept = parse(argv[1]);
    for (unsigned long number = 0; prctl(PR_CAPBSET_READ, number, 0, 0, 0) >= 0; number++) {
        if (!(kept >> number & 1) && prctl(PR_CAPBSET_DROP, number, 0, 0, 0) != 0) {
            fail("confine: giving up a capability");
        }
    }
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2];
    for (int half = 0; half < 2; half++) {
        const auto word = static_cast<uint32_t>(kept >> (32 * half));
        sets[half] = {word, word, word};
    }
    if (syscall(SYS_capset, &header, sets) != 0 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        fail("confine");
    }
    execvp(argv[2], argv + 2);
    fail(argv[2]);
}
