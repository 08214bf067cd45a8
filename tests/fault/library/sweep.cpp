#include "sweep.h"

#include "sandbox.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <optional>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int patience_seconds = 30;

struct Fact {
    std::string complaint; // empty: every promise held
    std::string state;
    long blocks = 0;
    long descriptors = 0; // fewer where a failure made the library let go of one
    bool happened = false;
    std::map<std::string, unsigned> calls;
};

Fact lost(const std::string &complaint)
{
    Fact fact;
    fact.complaint = complaint;
    fact.happened = true;
    return fact;
}

long open_descriptors()
{
    long count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        count++;
    }
    return count;
}

unsigned lines_with(const std::string &text, const std::string &start)
{
    unsigned count = 0;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        count += text.compare(at, start.size(), start) == 0 ? 1 : 0;
        at = end + 1;
    }
    return count;
}

struct Run {
    int result;
    int error;
    std::string said;
};

Run run_once(const Operation &operation, const seam::Fault *fault, unsigned occurrence)
{
    StderrCapture capture;
    if (fault) {
        seam::fail(getpid(), *fault, occurrence);
    } else {
        seam::count_calls(getpid());
    }
    errno = 0;
    int result = operation.run();
    int error = errno;
    seam::disarm();
    return {result, error, capture.text()};
}

std::string complaint_about(const Operation &operation, const Run &run, const seam::Fault &fault)
{
    if (run.result == 0) {
        return "";
    }
    if (fault.harmless) {
        return "fails where it had to go on (errno " + std::string(strerror(run.error)) + "): " + run.said;
    }
    if (!operation.reports) {
        return "";
    }
    if (run.error == 0) {
        return "fails without an errno value: " + run.said;
    }
    unsigned told = lines_with(run.said, "debug: ");
    bool others = lines_with(run.said, "") != told;
    if (told != 1 || (others && !operation.own_lines)) {
        return "does not report in one debug line, but: " + run.said;
    }
    return "";
}

int failures_so_far()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

// In the process that is lost afterwards.
Fact attempt(const Operation &operation, const seam::Fault *fault, unsigned occurrence)
{
    Fact fact;
    operation.prepare();
    bool compared = operation.all_or_nothing || operation.once;
    std::string before = compared ? operation.state() : "";
    long opened = open_descriptors();
    Run first = run_once(operation, fault, occurrence);
    fact.blocks = seam::blocks();
    fact.happened = seam::happened();
    if (!fault) {
        for (const seam::Fault &each : seam::faults()) {
            fact.calls[each.call] = seam::calls(each.call);
        }
        if (first.result != 0) {
            fact.complaint = "fails undisturbed: " + first.said;
        }
    } else {
        fact.complaint = complaint_about(operation, first, *fault);
    }
    if (fault && fact.complaint.empty() && first.result != 0) {
        std::string after_failure = compared ? operation.state() : "";
        if (operation.all_or_nothing && after_failure != before) {
            fact.complaint = "has failed and left " + after_failure + " in place of " + before;
        }
        if (operation.once && after_failure != before) {
            operation.prepare();
        }
        seam::count_calls(getpid());
        operation.recover();
        seam::disarm();
        fact.blocks += seam::blocks();
        Run again = run_once(operation, nullptr, 0);
        fact.blocks += seam::blocks();
        if (again.result != 0 && fact.complaint.empty()) {
            fact.complaint = "fails undisturbed afterwards: " + again.said;
        }
    }
    fact.state = operation.state();
    fact.descriptors = open_descriptors() - opened;
    return fact;
}

void put(std::string &text, const std::string &part)
{
    text += std::to_string(part.size()) + ":" + part;
}

std::string take(const std::string &text, size_t &at)
{
    size_t colon = text.find(':', at);
    size_t size = std::stoul(text.substr(at, colon - at));
    at = colon + 1 + size;
    return text.substr(colon + 1, size);
}

std::string packed(const Fact &fact)
{
    std::string text;
    put(text, fact.complaint);
    put(text, fact.state);
    put(text, std::to_string(fact.blocks));
    put(text, std::to_string(fact.descriptors));
    put(text, fact.happened ? "1" : "0");
    for (const auto &[call, count] : fact.calls) {
        put(text, call);
        put(text, std::to_string(count));
    }
    return text;
}

Fact unpacked(const std::string &text)
{
    Fact fact;
    size_t at = 0;
    fact.complaint = take(text, at);
    fact.state = take(text, at);
    fact.blocks = std::stol(take(text, at));
    fact.descriptors = std::stol(take(text, at));
    fact.happened = take(text, at) == "1";
    while (at < text.size()) {
        std::string call = take(text, at);
        fact.calls[call] = static_cast<unsigned>(std::stoul(take(text, at)));
    }
    return fact;
}

Fact in_a_process(const Operation &operation, const seam::Fault *fault, unsigned occurrence)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return lost("no pipe");
    }
    int failures = failures_so_far();
    pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        alarm(patience_seconds);
        std::string text = packed(attempt(operation, fault, occurrence));
        for (size_t at = 0; at < text.size();) {
            ssize_t sent = write(ends[1], text.data() + at, text.size() - at);
            if (sent <= 0) {
                _exit(1);
            }
            at += static_cast<size_t>(sent);
        }
        _exit(failures_so_far() > failures ? 1 : 0);
    }
    close(ends[1]);
    std::string text;
    char block[4096];
    for (ssize_t got; (got = read(ends[0], block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return lost(std::string("ends by ") + strsignal(WTERMSIG(status)));
    }
    if (status != 0) {
        return lost("its preparation failed");
    }
    return unpacked(text);
}

void compare(const Operation &operation, const std::string &what, const Fact &usual, const Fact &fact)
{
    SCOPED_TRACE(operation.name + ", " + what);
    EXPECT_EQ(fact.complaint, "");
    if (!fact.complaint.empty()) {
        return;
    }
    EXPECT_EQ(fact.state, usual.state);
    EXPECT_LE(fact.descriptors, usual.descriptors) << "descriptors left open";
    EXPECT_LE(fact.blocks, usual.blocks) << "blocks of memory left";
}

// How a process that carries out the operation ended, killed at a call or, without one, at none.
int end_of_run(const Operation &operation, const seam::Fault *death, unsigned occurrence)
{
    pid_t child = fork();
    if (child == 0) {
        alarm(patience_seconds);
        if (death) {
            seam::fail(getpid(), *death, occurrence);
        }
        _exit(operation.run() == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    seam::disarm();
    return status;
}

// What readers see: files that are being made bear names that nobody reads.
std::string state_for_readers(const Operation &operation)
{
    std::map<fs::path, std::string> fresh;
    for (const char *folder : {"/etc", "/run"}) {
        for (const auto &entry : fs::recursive_directory_iterator(folder)) {
            const std::string name = entry.path().filename();
            if (name.starts_with(".") && name.ends_with(".new")) {
                fresh[entry.path()] = read_file(entry.path());
            }
        }
    }
    for (const auto &[path, content] : fresh) {
        fs::remove(path);
    }
    std::string state = operation.state();
    for (const auto &[path, content] : fresh) {
        write_file(path, content);
    }
    return state;
}

} // namespace

unsigned sweep_kills(const Operation &operation)
{
    seam::prepare();
    const Fact usual = in_a_process(operation, nullptr, 0);
    operation.prepare();
    const std::string before = operation.state();
    unsigned kills = 0;
    for (const auto &[call, count] : usual.calls) {
        const seam::Fault death = {call.c_str(), seam::death, false};
        for (unsigned occurrence = 1; occurrence <= count; occurrence++) {
            SCOPED_TRACE(operation.name + ", killed at " + call + " no. " + std::to_string(occurrence));
            operation.prepare();
            const int status = end_of_run(operation, &death, occurrence);
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
            kills++;
            const std::string left = state_for_readers(operation);
            EXPECT_TRUE(left == before || left == usual.state) << left;
            if (left == before || !operation.once) {
                EXPECT_EQ(end_of_run(operation, nullptr, 0), 0);
            }
            EXPECT_EQ(operation.state(), usual.state);
        }
    }
    printf("%s kills: %u\n", operation.name.c_str(), kills);
    return kills;
}

unsigned sweep(const Operation &operation)
{
    seam::prepare();
    Fact usual = in_a_process(operation, nullptr, 0);
    EXPECT_EQ(usual.complaint, "") << operation.name;
    unsigned injections = 0;
    unsigned missed = 0;
    for (const seam::Fault &fault : seam::faults()) {
        if (operation.excepted(fault)) {
            continue;
        }
        for (unsigned occurrence = 1; occurrence <= usual.calls[fault.call]; occurrence++) {
            Fact fact = in_a_process(operation, &fault, occurrence);
            // How many reads a pipe or a socket takes is a matter of timing, so the last ones may not be
            // reached.
            for (int again = 0; again < 2 && !fact.happened; again++) {
                fact = in_a_process(operation, &fault, occurrence);
            }
            compare(operation, seam::describe(fault, occurrence), usual, fact);
            injections += fact.happened ? 1 : 0;
            missed += fact.happened ? 0 : 1;
        }
    }
    printf("%s injections: %u\n", operation.name.c_str(), injections);
    fflush(stdout);
    EXPECT_GT(injections, 3 * missed) << operation.name;
    return injections;
}

std::string files_below(std::initializer_list<const char *> folders)
{
    std::map<std::string, std::string> found;
    for (const char *folder : folders) {
        std::error_code absent;
        for (const auto &entry : fs::recursive_directory_iterator(folder, absent)) {
            std::string name = entry.path().filename();
            bool lock = name.size() >= 5 && name.substr(name.size() - 5) == ".lock";
            if (entry.is_regular_file() && !lock) {
                auto mode = static_cast<unsigned>(entry.status().permissions());
                found[entry.path()] = std::to_string(mode) + " " + read_file(entry.path());
            }
        }
    }
    std::string text;
    for (const auto &[path, content] : found) {
        text += path + " " + content + "\n";
    }
    return text;
}
