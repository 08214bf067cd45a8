#include "executor.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>

namespace lab {
namespace {

// A command that never reads what it is sent may hold this much, then it is ended.
constexpr size_t input_limit = 64U << 20;
// Its output is followed for this long after its end, while something it left behind still holds the pipe.
constexpr std::chrono::milliseconds after_end{300};

} // namespace

struct Executor::Job {
    uint32_t id = 0;
    pid_t pid = 0;
    UniqueFd in, out, err;
    std::string pending;
    bool input_over = false, running = true;
    std::string result;
};

std::string exit_text(int wait_status)
{
    if (WIFSIGNALED(wait_status)) {
        return "signal " + std::to_string(WTERMSIG(wait_status));
    }
    return "exit " + std::to_string(WEXITSTATUS(wait_status));
}

Executor::Executor(Loop &loop, Channel &channel) : loop_(loop), channel_(channel)
{
    channel_.on_drained([this] { hold_back(false); });
}

Executor::~Executor() = default;

void Executor::start(uint32_t id, const Host &host, std::vector<std::string> words,
                     std::vector<std::string> environment)
{
    if (words.empty() || jobs_.count(id) != 0) {
        channel_.send(FrameType::exit, id, "failed no command, or its id is in use");
        return;
    }
    auto owner = std::make_unique<Job>();
    Job &job = *owner;
    job.id = id;
    std::array<int, 2> in{}, out{}, err{};
    if (pipe2(in.data(), O_CLOEXEC) < 0) {
        channel_.send(FrameType::exit, id, "failed no pipe");
        return;
    }
    UniqueFd in_read(in[0]);
    job.in = UniqueFd(in[1]);
    if (pipe2(out.data(), O_CLOEXEC) < 0) {
        channel_.send(FrameType::exit, id, "failed no pipe");
        return;
    }
    UniqueFd out_write(out[1]);
    job.out = UniqueFd(out[0]);
    if (pipe2(err.data(), O_CLOEXEC) < 0) {
        channel_.send(FrameType::exit, id, "failed no pipe");
        return;
    }
    UniqueFd err_write(err[1]);
    job.err = UniqueFd(err[0]);
    try {
        job.pid = spawn(host, Command{std::move(words), std::move(environment), in_read.get(),
                                      out_write.get(), err_write.get(), true});
    } catch (const std::exception &error) {
        channel_.send(FrameType::exit, id, std::string("failed ") + error.what());
        return;
    }
    for (const UniqueFd *fd : {&job.in, &job.out, &job.err}) {
        fcntl(fd->get(), F_SETFL, O_NONBLOCK);
    }
    jobs_[id] = std::move(owner);
    const uint32_t listen = channel_.congested() ? 0U : uint32_t{EPOLLIN};
    loop_.watch(job.in.get(), 0, [this, &job](uint32_t events) {
        if ((events & EPOLLERR) != 0) { // nobody reads any more
            job.pending.clear();
            job.input_over = true;
        }
        stdin_ready(job);
    });
    loop_.watch(job.out.get(), listen, [this, &job](uint32_t) { output_ready(job, false); });
    loop_.watch(job.err.get(), listen, [this, &job](uint32_t) { output_ready(job, true); });
    loop_.on_child(job.pid, [this, &job](int status) { ended(job, status); });
}

void Executor::input(uint32_t id, std::string_view data)
{
    auto it = jobs_.find(id);
    if (it == jobs_.end() || !it->second->in) {
        return;
    }
    Job &job = *it->second;
    job.input_over = job.input_over || data.empty();
    job.pending += data;
    if (job.pending.size() > input_limit) {
        kill(id, SIGKILL);
        return;
    }
    stdin_ready(job);
}

void Executor::stdin_ready(Job &job)
{
    while (!job.pending.empty()) {
        ssize_t n = write(job.in.get(), job.pending.data(), job.pending.size());
        if (n < 0 && errno == EAGAIN) {
            loop_.change(job.in.get(), EPOLLOUT);
            return;
        }
        if (n < 0 && errno != EINTR) {
            job.pending.clear();
            job.input_over = true;
            break;
        }
        job.pending.erase(0, n > 0 ? static_cast<size_t>(n) : 0);
    }
    loop_.change(job.in.get(), 0);
    if (job.input_over) {
        loop_.forget(job.in.get());
        job.in.reset();
    }
}

void Executor::output_ready(Job &job, bool error)
{
    UniqueFd &fd = error ? job.err : job.out;
    std::array<char, 32768> buffer{};
    ssize_t n = read(fd.get(), buffer.data(), buffer.size());
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (n <= 0) {
        close_output(job, error);
        finish_if_done(job);
        return;
    }
    channel_.send(error ? FrameType::errors : FrameType::output, job.id,
                  std::string_view(buffer.data(), static_cast<size_t>(n)));
    if (channel_.congested()) {
        hold_back(true);
    }
}

void Executor::hold_back(bool hold)
{
    for (auto &[id, job] : jobs_) {
        for (const UniqueFd *fd : {&job->out, &job->err}) {
            if (*fd) {
                loop_.change(fd->get(), hold ? 0U : uint32_t{EPOLLIN});
            }
        }
    }
}

void Executor::close_output(Job &job, bool error)
{
    UniqueFd &fd = error ? job.err : job.out;
    if (fd) {
        loop_.forget(fd.get());
        fd.reset();
    }
}

void Executor::kill(uint32_t id, int signal)
{
    auto it = jobs_.find(id);
    if (it != jobs_.end() && it->second->running) {
        // the whole session the command leads; itself by name while it has not yet become the leader
        ::kill(-it->second->pid, signal);
        ::kill(it->second->pid, signal);
    }
}

void Executor::ended(Job &job, int wait_status)
{
    job.running = false;
    job.result = exit_text(wait_status);
    uint32_t id = job.id;
    loop_.after(after_end, [this, id] {
        if (auto it = jobs_.find(id); it != jobs_.end() && !it->second->running) {
            close_output(*it->second, false);
            close_output(*it->second, true);
            finish_if_done(*it->second);
        }
    });
    finish_if_done(job);
}

void Executor::finish_if_done(Job &job)
{
    if (job.running || job.out || job.err) {
        return;
    }
    if (job.in) {
        loop_.forget(job.in.get());
    }
    channel_.send(FrameType::exit, job.id, job.result);
    jobs_.erase(job.id);
}

} // namespace lab
