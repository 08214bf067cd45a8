#include "instance.h"

#include "launch.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

namespace lab {

namespace {

int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

int exit_code_of(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void add_strings(blob_buf *reply, const char *name, const std::vector<std::string> &list)
{
    void *array = blobmsg_open_array(reply, name);
    for (const std::string &text : list) {
        blobmsg_add_string(reply, nullptr, text.c_str());
    }
    blobmsg_close_array(reply, array);
}

void add_number(blob_buf *reply, const char *name, int value)
{
    blobmsg_add_u32(reply, name, static_cast<uint32_t>(value));
}

void add_text(blob_buf *reply, const char *name, const std::string &text)
{
    if (!text.empty()) {
        blobmsg_add_string(reply, name, text.c_str());
    }
}

void add_pairs(blob_buf *reply, const char *name, const Pairs &pairs)
{
    if (pairs.empty()) {
        return;
    }
    void *table = blobmsg_open_table(reply, name);
    for (const auto &[key, value] : pairs) {
        blobmsg_add_string(reply, key.c_str(), value.c_str());
    }
    blobmsg_close_table(reply, table);
}

} // namespace

Instance::Instance(InstanceOwner &instance_owner, OutputLog &output, std::string of_service,
                   std::string own_name)
    : owner_(instance_owner), log_(output), service_name_(std::move(of_service)),
      instance_name_(std::move(own_name)), child_([this](int status) { exited(status); }),
      kill_timer_([this] { send_signal(SIGKILL); }), respawn_timer_([this] { spawn(); })
{}

void Instance::apply(InstanceRequest request, bool start_it)
{
    const bool same = request.config == config_;
    config_ = std::move(request.config);
    user_data_ = std::move(request.data);
    if (!running()) {
        if (start_it) {
            start();
        }
        return;
    }
    if (stopping_) {
        after_ = start_it ? After::restart : After::nothing;
    } else if (!same && config_.reload_signal > 0) {
        send_signal(config_.reload_signal);
    } else if (!same) {
        after_ = After::restart;
        terminate();
    }
}

void Instance::start()
{
    respawn_timer_.cancel();
    crash_count_ = 0;
    if (running()) {
        if (stopping_) {
            after_ = After::restart;
        }
        return;
    }
    spawn();
}

void Instance::spawn()
{
    if (!config_.startable()) {
        log_.line(label(), "not started: no usable command");
        return;
    }
    const int output = log_.writer(label());
    const pid_t pid = output < 0 ? -1 : launch(config_, owner_.jail_helper(), output);
    if (output >= 0) {
        close(output);
    }
    if (pid < 0) {
        log_.line(label(), std::string("cannot be started: ") + strerror(errno));
        return;
    }
    child_.watch(pid);
    stopping_ = false;
    after_ = After::nothing;
    started_ms_ = now_ms();
    if (!config_.pidfile.empty()) {
        written_pidfile_ = config_.pidfile;
        if (FILE *file = fopen(written_pidfile_.c_str(), "we")) {
            fprintf(file, "%d\n", pid);
            fclose(file);
        }
    }
    log_.line(label(), "started, process " + std::to_string(pid));
}

void Instance::stop()
{
    respawn_timer_.cancel();
    after_ = After::nothing;
    if (running()) {
        terminate();
    }
}

void Instance::remove()
{
    stop();
    if (running()) {
        after_ = After::removal;
    } else {
        owner_.gone(*this);
    }
}

void Instance::terminate()
{
    if (stopping_) {
        return;
    }
    stopping_ = true;
    send_signal(SIGTERM);
    kill_timer_.set(config_.term_timeout * 1000);
}

int Instance::send_signal(int number)
{
    if (!running()) {
        return ESRCH;
    }
    return kill(child_.pid(), number) < 0 ? errno : 0;
}

void Instance::exited(int status)
{
    const bool wanted = stopping_;
    kill_timer_.cancel();
    stopping_ = false;
    last_exit_ = exit_code_of(status);
    if (!written_pidfile_.empty()) {
        unlink(written_pidfile_.c_str());
        written_pidfile_.clear();
    }
    log_.line(label(), "ended, exit code " + std::to_string(last_exit_));
    if (!wanted) {
        crashed_or_done();
        return;
    }
    switch (after_) {
    case After::restart:
        crash_count_ = 0;
        spawn();
        break;
    case After::removal:
        owner_.gone(*this);
        break;
    case After::nothing:
        break;
    }
}

void Instance::crashed_or_done()
{
    if (!config_.respawn) {
        return;
    }
    const bool lived_long = now_ms() - started_ms_ >= int64_t{config_.respawn->threshold} * 1000;
    crash_count_ = lived_long ? 0 : crash_count_ + 1;
    if (config_.respawn->retry > 0 && crash_count_ > config_.respawn->retry) {
        log_.line(label(), "ends again and again; given up");
        config_.respawn.reset(); // nor is it listed any longer
        return;
    }
    respawn_timer_.set(config_.respawn->timeout * 1000);
}

void Instance::describe(blob_buf *reply) const
{
    void *table = blobmsg_open_table(reply, instance_name_.c_str());
    blobmsg_add_u8(reply, "running", running() ? 1 : 0);
    if (running()) {
        add_number(reply, "pid", child_.pid());
    }
    if (!config_.command.empty()) {
        add_strings(reply, "command", config_.command);
    }
    add_number(reply, "term_timeout", config_.term_timeout);
    if (!running()) {
        add_number(reply, "exit_code", last_exit_);
    }
    if (!config_.errors.empty()) {
        add_strings(reply, "errors", config_.errors);
    }
    add_pairs(reply, "env", config_.env);
    if (user_data_) {
        blobmsg_add_blob(reply, user_data_.get());
    }
    add_pairs(reply, "limits", config_.limits);
    if (!config_.netdev.empty()) {
        add_strings(reply, "netdev", config_.netdev);
    }
    if (config_.reload_signal) {
        add_number(reply, "reload_signal", config_.reload_signal);
    }
    if (config_.respawn) {
        void *respawn = blobmsg_open_table(reply, "respawn");
        add_number(reply, "threshold", config_.respawn->threshold);
        add_number(reply, "timeout", config_.respawn->timeout);
        add_number(reply, "retry", config_.respawn->retry);
        blobmsg_close_table(reply, respawn);
    }
    if (config_.no_new_privs) {
        blobmsg_add_u8(reply, "no_new_privs", 1);
    }
    add_text(reply, "seccomp", config_.seccomp);
    add_text(reply, "capabilities", config_.capabilities);
    add_text(reply, "pidfile", config_.pidfile);
    add_text(reply, "user", config_.user);
    add_text(reply, "group", config_.group);
    if (config_.jail) {
        void *jail = blobmsg_open_table(reply, "jail");
        add_text(reply, "name", config_.jail->name);
        for (size_t i = 0; i < jail_options.size(); ++i) {
            blobmsg_add_u8(reply, jail_options[i], config_.jail->options[i] ? 1 : 0);
        }
        blobmsg_close_table(reply, jail);
    }
    blobmsg_close_table(reply, table);
}

} // namespace lab
