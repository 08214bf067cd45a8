#include "channel.h"

#include <array>
#include <fcntl.h>

namespace lab {

Channel::Channel(Loop &loop, int in, int out, std::function<void(Frame)> frame, std::function<void()> closed)
    : loop_(loop), in_(in), out_(out), frame_(std::move(frame)), closed_(std::move(closed))
{
    for (int fd : {in_, out_}) {
        check(fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK), "control channel");
    }
    loop_.watch(in_, EPOLLIN, [this](uint32_t events) { ready(in_, events); });
    if (out_ != in_) {
        loop_.watch(out_, 0, [this](uint32_t events) { ready(out_, events); });
    }
}

Channel::~Channel()
{
    if (!ended_) {
        loop_.forget(in_);
        loop_.forget(out_);
    }
}

void Channel::listen()
{
    const uint32_t in_events = paused_ ? 0U : uint32_t{EPOLLIN};
    const uint32_t out_events = sent_ < queue_.size() ? uint32_t{EPOLLOUT} : 0U;
    if (in_ == out_) {
        loop_.change(in_, in_events | out_events);
    } else {
        loop_.change(in_, in_events);
        loop_.change(out_, out_events);
    }
}

void Channel::pause(bool paused)
{
    paused_ = paused;
    if (!ended_) {
        listen();
    }
}

void Channel::ready(int fd, uint32_t events)
{
    if ((events & EPOLLOUT) != 0) {
        transmit();
    }
    if (!ended_ && fd == in_ && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
        receive();
    } else if (!ended_ && fd != in_ && (events & (EPOLLHUP | EPOLLERR)) != 0) {
        end();
    }
}

void Channel::receive()
{
    std::array<char, 65536> buffer{};
    ssize_t n = read(in_, buffer.data(), buffer.size());
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (n <= 0) {
        end();
        return;
    }
    reader_.feed(buffer.data(), static_cast<size_t>(n));
    try {
        while (!ended_) {
            std::optional<Frame> frame = reader_.next();
            if (!frame) {
                return;
            }
            frame_(std::move(*frame));
        }
    } catch (const std::runtime_error &) {
        end();
    }
}

void Channel::send(FrameType type, uint32_t id, std::string_view payload)
{
    if (ended_) {
        return;
    }
    queue_ += frame_bytes(type, id, payload);
    transmit();
}

void Channel::transmit()
{
    bool was = congested();
    while (sent_ < queue_.size()) {
        ssize_t n = write(out_, queue_.data() + sent_, queue_.size() - sent_);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && errno != EAGAIN) {
            end();
            return;
        }
        if (n < 0) {
            break;
        }
        sent_ += static_cast<size_t>(n);
    }
    if (sent_ == queue_.size() || sent_ > high_water) {
        queue_.erase(0, sent_);
        sent_ = 0;
    }
    listen();
    if (was && !congested()) {
        for (const auto &handler : drained_) {
            handler();
        }
    }
}

void Channel::end()
{
    if (ended_) {
        return;
    }
    ended_ = true;
    loop_.forget(in_);
    loop_.forget(out_);
    closed_();
}

} // namespace lab
