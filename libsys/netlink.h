// The routing netlink socket: requests, answers and attributes.
//
// One socket serves every request of the process and stays open. Each request is answered or acknowledged by
// the kernel and matched by its sequence number, so an answer that an interrupted request left behind is
// never taken for another's. A listing is collected whole before anyone sees it and repeated when the kernel
// says that it changed meanwhile; a visitor may therefore send other requests.
//
// exchange() gives 0 or a positive errno value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

namespace libsys::netlink {

// What routes and rules of this library carry as their origin ("ip route" shows it as "proto 105").
constexpr uint8_t own_protocol = 105;

// One request under construction. Everything that is put into it is bounded: names shorter than IFNAMSIZ and
// numbers.
class request {
public:
    request(uint16_t type, uint16_t flags) : header_(mnl_nlmsg_put_header(buffer_))
    {
        header_->nlmsg_type = type;
        header_->nlmsg_flags = static_cast<uint16_t>(flags | NLM_F_REQUEST | NLM_F_ACK);
    }
    request(const request &) = delete;
    request &operator=(const request &) = delete;

    // The fixed part that follows the header; zeroed.
    template <typename Body> Body *body()
    {
        return static_cast<Body *>(mnl_nlmsg_put_extra_header(header_, sizeof(Body)));
    }
    nlmsghdr *header() { return header_; }
    // For a question that one message answers: without an acknowledgement behind it, one datagram less is
    // read.
    void answer_is_enough() { header_->nlmsg_flags &= static_cast<uint16_t>(~NLM_F_ACK); }

private:
    alignas(nlmsghdr) char buffer_[512] = {};
    nlmsghdr *header_;
};

// Whether the next `left` bytes begin with a whole message. The library's own check takes a length of 2 GB or
// more for a negative one, which always fits.
inline bool is_whole(const nlmsghdr *message, int left)
{
    return mnl_nlmsg_ok(message, left) && message->nlmsg_len <= static_cast<uint32_t>(left);
}

// The messages that answer one request.
class reply {
public:
    reply() = default;
    reply(const reply &) = delete;
    reply &operator=(const reply &) = delete;
    ~reply() { free(data_); }

    // Calls visit(const nlmsghdr &, const Body &) for each message of a type.
    template <typename Body, typename Visit> void each(uint16_t type, Visit visit) const
    {
        int left = static_cast<int>(size_);
        for (const auto *message = reinterpret_cast<const nlmsghdr *>(data_); is_whole(message, left);
             message = mnl_nlmsg_next(message, &left)) {
            if (message->nlmsg_type == type && message->nlmsg_seq == sequence_ &&
                mnl_nlmsg_get_payload_len(message) >= sizeof(Body)) {
                visit(*message, *static_cast<const Body *>(mnl_nlmsg_get_payload(message)));
            }
        }
    }

private:
    friend int exchange(request &message, reply *answer);
    friend class collector;
    char *data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
    uint32_t sequence_ = 0;
};

// Sends a request and waits for its end; answer may be null.
int exchange(request &message, reply *answer = nullptr);

// The attribute of a type behind the fixed part of a message, or inside another; null when absent.
const nlattr *find(const nlmsghdr &message, size_t body_size, uint16_t type);
const nlattr *find(const nlattr *nest, uint16_t type);

// The value of an attribute, or `absent` when it is missing or too short.
uint8_t value_u8(const nlattr *attribute, uint8_t absent);
uint16_t value_u16(const nlattr *attribute, uint16_t absent);
uint32_t value_u32(const nlattr *attribute, uint32_t absent);
// Copies a text; empty when absent. Always terminated, cut to fit.
void value_text(const nlattr *attribute, char *out, size_t size);

} // namespace libsys::netlink
