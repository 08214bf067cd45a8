#pragma once
// One end of the control channel: frames in by handler, frames out through a queue, never blocking the loop.

#include "frame.h"
#include "loop.h"

#include <functional>
#include <string>
#include <string_view>

namespace lab {

class Channel {
public:
    // in and out may be the same descriptor; they stay the caller's. closed runs once, when the other end is
    // gone or sends what is no frame.
    Channel(Loop &loop, int in, int out, std::function<void(Frame)> frame, std::function<void()> closed);
    ~Channel();
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    void send(FrameType type, uint32_t id, std::string_view payload);
    // Who produces much should wait while this says true; drained runs when it turns false again.
    bool congested() const { return queue_.size() - sent_ > high_water; }
    void on_drained(std::function<void()> handler) { drained_.push_back(std::move(handler)); }
    // Leaves what comes in where it is for a while.
    void pause(bool paused);

private:
    static constexpr size_t high_water = 1U << 20;

    void ready(int fd, uint32_t events);
    void receive();
    void transmit();
    void end();
    void listen();

    Loop &loop_;
    int in_, out_;
    std::function<void(Frame)> frame_;
    std::function<void()> closed_;
    std::vector<std::function<void()>> drained_;
    FrameReader reader_;
    std::string queue_;
    size_t sent_ = 0;
    bool paused_ = false;
    bool ended_ = false;
};

} // namespace lab
