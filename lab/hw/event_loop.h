// A level-triggered epoll loop. Handlers may add and remove any descriptor, their own included. Descriptors
// belong to the caller and are removed before they are closed.
#pragma once

#include "unique_fd.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

namespace lab {

class EventLoop {
public:
    using Handler = std::function<void(uint32_t events)>;

    EventLoop();

    bool add(int fd, uint32_t events, Handler handler);
    bool change(int fd, uint32_t events);
    void remove(int fd);

    // Runs until stop(); false when waiting itself failed.
    bool run();
    void stop() { stopping = true; }

private:
    UniqueFd epoll;
    std::unordered_map<int, std::shared_ptr<Handler>> handlers;
    bool stopping = false;
};

} // namespace lab
