#include "netlink.h"

#include "internal.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>

namespace libsys::netlink {

namespace {

// The kernel answers at once; a silence this long means that something is broken for good.
constexpr timeval answer_timeout = {5, 0};
// The kernel remembers the largest buffer a socket ever offered and fills datagrams of a listing up to that,
// but never beyond this.
constexpr size_t room_for_one_datagram = 32768;
constexpr int listing_attempts = 8;
constexpr int highest_errno = 4095; // the kernel's own limit

mnl_socket *kept_socket = nullptr;
uint32_t last_sequence = 0;

void drop_socket()
{
    if (kept_socket != nullptr) {
        int saved = errno;
        mnl_socket_close(kept_socket);
        kept_socket = nullptr;
        errno = saved;
    }
}

mnl_socket *open_socket()
{
    if (kept_socket != nullptr) {
        return kept_socket;
    }
    kept_socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (kept_socket == nullptr) {
        return nullptr;
    }
    if (mnl_socket_bind(kept_socket, 0, MNL_SOCKET_AUTOPID) != 0 ||
        setsockopt(mnl_socket_get_fd(kept_socket), SOL_SOCKET, SO_RCVTIMEO, &answer_timeout,
                   sizeof(answer_timeout)) != 0) {
        drop_socket();
        return nullptr;
    }
    return kept_socket;
}

} // namespace

// Gathers the datagrams of one answer into a reply.
class collector {
public:
    enum class state { more, finished, interrupted };

    collector(reply &answer, const nlmsghdr &question)
        : answer_(answer), acknowledged_((question.nlmsg_flags & NLM_F_ACK) != 0)
    {
        answer_.size_ = 0;
        answer_.sequence_ = question.nlmsg_seq;
    }

    // 0 or an errno value. Datagrams of other senders than the kernel are skipped.
    int receive(int fd)
    {
        if (!make_room()) {
            return ENOMEM;
        }
        sockaddr_nl sender = {};
        socklen_t sender_size = sizeof(sender);
        char *start = answer_.data_ + answer_.size_;
        size_t room = answer_.capacity_ - answer_.size_;
        ssize_t got = retry_eintr([&] {
            return recvfrom(fd, start, room, MSG_TRUNC, reinterpret_cast<sockaddr *>(&sender), &sender_size);
        });
        if (got < 0) {
            return errno == EAGAIN ? ETIMEDOUT : errno;
        }
        if (static_cast<size_t>(got) > room) {
            return EMSGSIZE;
        }
        if (sender.nl_pid == 0) {
            look_through(start, static_cast<int>(got));
            answer_.size_ += MNL_ALIGN(static_cast<size_t>(got));
        }
        return 0;
    }

    state progress() const
    {
        return !finished_ ? state::more : interrupted_ ? state::interrupted : state::finished;
    }
    int error() const { return error_; }

private:
    bool make_room()
    {
        if (answer_.capacity_ - answer_.size_ >= room_for_one_datagram) {
            return true;
        }
        size_t capacity = answer_.capacity_ * 2 + room_for_one_datagram;
        auto *data = static_cast<char *>(realloc(answer_.data_, capacity));
        if (data == nullptr) {
            return false;
        }
        answer_.data_ = data;
        answer_.capacity_ = capacity;
        return true;
    }

    void look_through(const char *start, int left)
    {
        for (const auto *message = reinterpret_cast<const nlmsghdr *>(start);
             !finished_ && is_whole(message, left); message = mnl_nlmsg_next(message, &left)) {
            if (message->nlmsg_seq != answer_.sequence_) {
                continue;
            }
            interrupted_ = interrupted_ || ((message->nlmsg_flags & NLM_F_DUMP_INTR) != 0);
            if (message->nlmsg_type == NLMSG_ERROR || message->nlmsg_type == NLMSG_DONE) {
                // Both begin with an int: 0 or a negative errno value.
                int result = 0;
                if (mnl_nlmsg_get_payload_len(message) >= sizeof(result)) {
                    memcpy(&result, mnl_nlmsg_get_payload(message), sizeof(result));
                }
                error_ = result >= 0 ? 0 : result >= -highest_errno ? -result : EPROTO;
                finished_ = true;
            } else if (!acknowledged_ && !(message->nlmsg_flags & NLM_F_MULTI)) {
                finished_ = true;
            }
        }
    }

    reply &answer_;
    bool acknowledged_; // else the answer itself is the end
    bool finished_ = false;
    bool interrupted_ = false;
    int error_ = 0;
};

int exchange(request &message, reply *answer)
{
    reply unwanted;
    reply &into = answer != nullptr ? *answer : unwanted;
    for (int attempt = 0; attempt < listing_attempts; ++attempt) {
        mnl_socket *socket = open_socket();
        if (socket == nullptr) {
            return errno;
        }
        nlmsghdr *header = message.header();
        header->nlmsg_seq = ++last_sequence;
        if (retry_eintr([&] { return mnl_socket_sendto(socket, header, header->nlmsg_len); }) < 0) {
            int error = errno;
            drop_socket();
            return error;
        }
        collector gather(into, *header);
        while (gather.progress() == collector::state::more) {
            if (int error = gather.receive(mnl_socket_get_fd(socket))) {
                drop_socket();
                return error;
            }
        }
        if (gather.progress() == collector::state::finished) {
            return gather.error();
        }
    }
    return EBUSY;
}

namespace {

const nlattr *find_between(const char *start, const char *end, uint16_t type)
{
    const auto *attribute = reinterpret_cast<const nlattr *>(start);
    while (start < end && mnl_attr_ok(attribute, static_cast<int>(end - start))) {
        if (mnl_attr_get_type(attribute) == type) {
            return attribute;
        }
        attribute = mnl_attr_next(attribute);
        start = reinterpret_cast<const char *>(attribute);
    }
    return nullptr;
}

} // namespace

const nlattr *find(const nlmsghdr &message, size_t body_size, uint16_t type)
{
    return find_between(static_cast<const char *>(mnl_nlmsg_get_payload_offset(&message, body_size)),
                        static_cast<const char *>(mnl_nlmsg_get_payload_tail(&message)), type);
}

const nlattr *find(const nlattr *nest, uint16_t type)
{
    if (nest == nullptr) {
        return nullptr;
    }
    const auto *start = static_cast<const char *>(mnl_attr_get_payload(nest));
    return find_between(start, start + mnl_attr_get_payload_len(nest), type);
}

namespace {

template <typename Number> Number number(const nlattr *attribute, Number absent)
{
    if (!attribute || mnl_attr_get_payload_len(attribute) < sizeof(Number)) {
        return absent;
    }
    Number value;
    memcpy(&value, mnl_attr_get_payload(attribute), sizeof(value));
    return value;
}

} // namespace

uint8_t value_u8(const nlattr *attribute, uint8_t absent)
{
    return number(attribute, absent);
}

uint16_t value_u16(const nlattr *attribute, uint16_t absent)
{
    return number(attribute, absent);
}

uint32_t value_u32(const nlattr *attribute, uint32_t absent)
{
    return number(attribute, absent);
}

void value_text(const nlattr *attribute, char *out, size_t size)
{
    size_t length = 0;
    if (attribute != nullptr) {
        length = strnlen(static_cast<const char *>(mnl_attr_get_payload(attribute)),
                         mnl_attr_get_payload_len(attribute));
        length = length < size ? length : size - 1;
        memcpy(out, mnl_attr_get_payload(attribute), length);
    }
    out[length] = '\0';
}

} // namespace libsys::netlink
