#include "tap.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>

namespace lab {

int Tap::create(const std::string &name)
{
    if (name.size() >= IFNAMSIZ) {
        return -ENAMETOOLONG;
    }
    UniqueFd device(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!device) {
        return -errno;
    }
    ifreq request{};
    memcpy(request.ifr_name, name.c_str(), name.size() + 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (ioctl(device.get(), TUNSETIFF, &request) < 0 || ioctl(device.get(), TUNSETOFFLOAD, 0) < 0) {
        return -errno;
    }
    fd_ = std::move(device);
    return 0;
}

int Tap::read(std::span<uint8_t> buffer)
{
    const ssize_t length = ::read(fd_.get(), buffer.data(), buffer.size());
    if (length >= 0) {
        return static_cast<int>(length);
    }
    return errno == EAGAIN || errno == EINTR ? 0 : -errno;
}

bool Tap::write(std::span<const uint8_t> frame)
{
    return ::write(fd_.get(), frame.data(), frame.size()) == static_cast<ssize_t>(frame.size());
}

bool Tap::set_carrier(bool on)
{
    int carrier = on ? 1 : 0;
    return ioctl(fd_.get(), TUNSETCARRIER, &carrier) == 0;
}

} // namespace lab
