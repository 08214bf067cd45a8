#include "services.h"

#include "executor.h"

#include <csignal>
#include <fcntl.h>

namespace lab {

void Services::define(const std::string &name, std::vector<std::string> words,
                      std::vector<std::string> environment)
{
    Service service;
    service.words = std::move(words);
    service.environment = std::move(environment);
    services_[name] = std::move(service);
}

bool Services::running(const std::string &name) const
{
    auto it = services_.find(name);
    return it != services_.end() && it->second.pid != 0;
}

void Services::start(const std::string &name, int out)
{
    Service &service = services_.at(name);
    if (service.pid != 0) {
        throw std::runtime_error(name + " is running already");
    }
    std::string path = "/var/log/" + name + ".log";
    UniqueFd log(check(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), path));
    service.begun = Clock::now();
    service.pid = spawn(
        router_, Command{service.words, service.environment, -1, out < 0 ? log.get() : out, log.get(), true});
    loop_.on_child(service.pid, [this, name](int status) { gone(name, status); });
}

bool Services::signal(const std::string &name, int signal)
{
    return running(name) && kill(services_.at(name).pid, signal) == 0;
}

void Services::stop(const std::string &name, std::function<void()> done)
{
    Service &service = services_.at(name);
    if (service.pid == 0) {
        done();
        return;
    }
    service.waiting.push_back(std::move(done));
    kill(service.pid, SIGTERM);
}

void Services::gone(const std::string &name, int wait_status)
{
    Service &service = services_.at(name);
    service.pid = 0;
    service.how = exit_text(wait_status);
    std::vector<std::function<void()>> waiting = std::move(service.waiting);
    service.waiting.clear();
    if (ended_) {
        ended_(name, service.how);
    }
    for (const auto &done : waiting) {
        done();
    }
}

std::optional<Clock::time_point> Services::started(const std::string &name) const
{
    auto it = services_.find(name);
    if (it == services_.end() || it->second.pid == 0) {
        return std::nullopt;
    }
    return it->second.begun;
}

std::string Services::report() const
{
    std::string text;
    for (const auto &[name, service] : services_) {
        text += name;
        if (service.pid != 0) {
            text += " running " + std::to_string(service.pid);
        } else {
            text += service.how.empty() ? " not started" : " ended " + service.how;
        }
        text += "\n";
    }
    return text;
}

} // namespace lab
