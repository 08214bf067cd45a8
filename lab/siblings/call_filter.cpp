#include "call_filter.h"

#include "bus_headers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <vector>

namespace lab {

namespace {

struct Named {
    std::string_view name;
    uint32_t number;
};

constexpr Named calls[] = {
#include "calls.inc"
};

constexpr Named actions[] = {{"SCMP_ACT_ALLOW", SECCOMP_RET_ALLOW},
                             {"SCMP_ACT_LOG", SECCOMP_RET_LOG},
                             {"SCMP_ACT_ERRNO", SECCOMP_RET_ERRNO | EPERM},
                             {"SCMP_ACT_KILL_PROCESS", SECCOMP_RET_KILL_PROCESS}};

#if defined(__x86_64__)
constexpr uint32_t processor = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t processor = AUDIT_ARCH_AARCH64;
#elif defined(__mips__) && defined(__MIPSEL__)
constexpr uint32_t processor = AUDIT_ARCH_MIPSEL;
#elif defined(__mips__)
constexpr uint32_t processor = AUDIT_ARCH_MIPS;
#else
#error "the processor's number in linux/audit.h"
#endif

using Program = std::vector<sock_filter>;

enum Field { default_action, syscalls, field_count };
constexpr std::array<blobmsg_policy, field_count> policy = {
    {{"defaultAction", BLOBMSG_TYPE_STRING}, {"syscalls", BLOBMSG_TYPE_ARRAY}}};

enum RuleField { names, action, args, rule_field_count };
constexpr std::array<blobmsg_policy, rule_field_count> rule_policy = {
    {{"names", BLOBMSG_TYPE_ARRAY}, {"action", BLOBMSG_TYPE_STRING}, {"args", BLOBMSG_TYPE_ARRAY}}};

uint32_t action_of(blob_attr *attr)
{
    const std::string_view name = attr != nullptr ? blobmsg_get_string(attr) : "";
    const auto *const found = std::find_if(std::begin(actions), std::end(actions),
                                           [&](const Named &known) { return known.name == name; });
    if (found == std::end(actions)) {
        throw std::runtime_error("no such action");
    }
    return found->number;
}

void load(Program &program, size_t offset)
{
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset)));
}

void give(Program &program, uint32_t result)
{
    program.push_back(BPF_STMT(BPF_RET | BPF_K, result));
}

void add_rule(Program &program, blob_attr *rule)
{
    std::array<blob_attr *, rule_field_count> tb{};
    blobmsg_parse(rule_policy.data(), rule_field_count, tb.data(), blobmsg_data(rule),
                  static_cast<unsigned>(blobmsg_data_len(rule)));
    if (tb[names] == nullptr || blobmsg_check_array(tb[names], BLOBMSG_TYPE_STRING) < 0 ||
        tb[args] != nullptr) {
        throw std::runtime_error("a rule is a list of names and an action");
    }
    blob_attr *member = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(member, tb[names], left)
    {
        const std::string_view name = blobmsg_get_string(member);
        for (const Named &call : calls) {
            if (call.name == name) {
                program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 1));
                give(program, action_of(tb[action]));
            }
        }
    }
}

Program program_of(blob_attr *document)
{
    std::array<blob_attr *, field_count> tb{};
    blobmsg_parse(policy.data(), field_count, tb.data(), blob_data(document),
                  static_cast<unsigned>(blob_len(document)));
    if (tb[syscalls] == nullptr || blobmsg_check_array(tb[syscalls], BLOBMSG_TYPE_TABLE) < 0) {
        throw std::runtime_error("no list of rules");
    }
    Program program;
    load(program, offsetof(seccomp_data, arch));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, processor, 1, 0));
    give(program, SECCOMP_RET_KILL_PROCESS);
    load(program, offsetof(seccomp_data, nr));
    blob_attr *rule = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(rule, tb[syscalls], left)
    {
        add_rule(program, rule);
    }
    give(program, action_of(tb[default_action]));
    return program;
}

} // namespace

void filter_calls(const std::string &file)
{
    blob_buf buffer{};
    blob_buf_init(&buffer, 0);
    const std::unique_ptr<blob_buf, decltype(&blob_buf_free)> freed(&buffer, blob_buf_free);
    if (!blobmsg_add_json_from_file(&buffer, file.c_str())) {
        throw std::runtime_error(file + ": cannot be read");
    }
    Program program;
    try {
        program = program_of(buffer.head);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error(file + ": " + error.what());
    }
    const sock_fprog whole = {static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &whole, 0, 0) != 0) {
        throw std::runtime_error(std::string("filter of calls: ") + strerror(errno));
    }
}

} // namespace lab
