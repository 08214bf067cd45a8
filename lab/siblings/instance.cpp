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
    : owner(instance_owner), log(output), service_name(std::move(of_service)),
      instance_name(std::move(own_name)), child([this](int status) { exited(status); }),
      kill_timer([this] { send_signal(SIGKILL); }), respawn_timer([this] { spawn(); })
{}

void Instance::apply(InstanceRequest request, bool start_it)
{
    const bool same = request.config == config;
    config = std::move(request.config);
    user_data = std::move(request.data);
    if (!running()) {
        if (start_it) {
            start();
        }
        return;
    }
    if (stopping) {
        after = start_it ? After::restart : After::nothing;
    } else if (!same && config.reload_signal > 0) {
        send_signal(config.reload_signal);
    } else if (!same) {
        after = After::restart;
        terminate();
    }
}

void Instance::start()
{
    respawn_timer.cancel();
    crash_count = 0;
    if (running()) {
        if (stopping) {
            after = After::restart;
        }
        return;
    }
    spawn();
}

void Instance::spawn()
{
    if (!config.startable()) {
        log.line(label(), "not started: no usable command");
        return;
    }
    const int output = log.writer(label());
    const pid_t pid = output < 0 ? -1 : launch(config, owner.jail_helper(), output);
    if (output >= 0) {
        close(output);
    }
    if (pid < 0) {
        log.line(label(), std::string("cannot be started: ") + strerror(errno));
        return;
    }
    child.watch(pid);
    stopping = false;
    after = After::nothing;
    started_ms = now_ms();
    if (!config.pidfile.empty()) {
        written_pidfile = config.pidfile;
        if (FILE *file = fopen(written_pidfile.c_str(), "we")) {
            fprintf(file, "%d\n", pid);
            fclose(file);
        }
    }
    log.line(label(), "started, process " + std::to_string(pid));
}

void Instance::stop()
{
    respawn_timer.cancel();
    after = After::nothing;
    if (running()) {
        terminate();
    }
}

void Instance::remove()
{
    stop();
    if (running()) {
        after = After::removal;
    } else {
        owner.gone(*this);
    }
}

void Instance::terminate()
{
    if (stopping) {
        return;
    }
    stopping = true;
    send_signal(SIGTERM);
    kill_timer.set(config.term_timeout * 1000);
}

int Instance::send_signal(int number)
{
    if (!running()) {
        return ESRCH;
    }
    return kill(child.pid(), number) < 0 ? errno : 0;
}

void Instance::exited(int status)
{
    const bool wanted = stopping;
    kill_timer.cancel();
    stopping = false;
    last_exit = exit_code_of(status);
    if (!written_pidfile.empty()) {
        unlink(written_pidfile.c_str());
        written_pidfile.clear();
    }
    log.line(label(), "ended, exit code " + std::to_string(last_exit));
    if (!wanted) {
        crashed_or_done();
        return;
    }
    switch (after) {
    case After::restart:
        crash_count = 0;
        spawn();
        break;
    case After::removal:
        owner.gone(*this);
        break;
    case After::nothing:
        break;
    }
}

void Instance::crashed_or_done()
{
    if (!config.respawn) {
        return;
    }
    const bool lived_long = now_ms() - started_ms >= int64_t{config.respawn->threshold} * 1000;
    crash_count = lived_long ? 0 : crash_count + 1;
    if (config.respawn->retry > 0 && crash_count > config.respawn->retry) {
        log.line(label(), "ends again and again; given up");
        config.respawn.reset(); // nor is it listed any longer
        return;
    }
    respawn_timer.set(config.respawn->timeout * 1000);
}

void Instance::describe(blob_buf *reply) const
{
    void *table = blobmsg_open_table(reply, instance_name.c_str());
    blobmsg_add_u8(reply, "running", running() ? 1 : 0);
    if (running()) {
        add_number(reply, "pid", child.pid());
    }
    if (!config.command.empty()) {
        add_strings(reply, "command", config.command);
    }
    add_number(reply, "term_timeout", config.term_timeout);
    if (!running()) {
        add_number(reply, "exit_code", last_exit);
    }
    if (!config.errors.empty()) {
        add_strings(reply, "errors", config.errors);
    }
    add_pairs(reply, "env", config.env);
    if (user_data) {
        blobmsg_add_blob(reply, user_data.get());
    }
    add_pairs(reply, "limits", config.limits);
    if (!config.netdev.empty()) {
        add_strings(reply, "netdev", config.netdev);
    }
    if (config.reload_signal) {
        add_number(reply, "reload_signal", config.reload_signal);
    }
    if (config.respawn) {
        void *respawn = blobmsg_open_table(reply, "respawn");
        add_number(reply, "threshold", config.respawn->threshold);
        add_number(reply, "timeout", config.respawn->timeout);
        add_number(reply, "retry", config.respawn->retry);
        blobmsg_close_table(reply, respawn);
    }
    if (config.no_new_privs) {
        blobmsg_add_u8(reply, "no_new_privs", 1);
    }
    add_text(reply, "capabilities", config.capabilities);
    add_text(reply, "pidfile", config.pidfile);
    add_text(reply, "user", config.user);
    add_text(reply, "group", config.group);
    if (config.jail) {
        void *jail = blobmsg_open_table(reply, "jail");
        add_text(reply, "name", config.jail->name);
        for (size_t i = 0; i < jail_options.size(); i++) {
            blobmsg_add_u8(reply, jail_options[i], config.jail->options[i] ? 1 : 0);
        }
        blobmsg_close_table(reply, jail);
    }
    blobmsg_close_table(reply, table);
}

} // namespace lab
