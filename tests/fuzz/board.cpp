// Board files. Whatever they hold, they are taken as a whole or not at all, and what is taken is possible.
#include "platform/board.h"

#include "file.h"
#include "input.h"

#include <algorithm>
#include <array>
#include <vector>

namespace {

constexpr uint32_t places = 16;

std::string_view content;

struct Board {
    std::array<uint8_t, 6> mac{};
    uint32_t cpuid = 0;
    std::vector<std::pair<int, int>> ports; // role and number of each place, -1 where it is free
    bool operator==(const Board &) const = default;
};

Board board_now()
{
    Board board;
    const uint8_t *mac = sys_bdinfo_macbase_get();
    std::copy(mac, mac + board.mac.size(), board.mac.begin());
    board.cpuid = sys_bdinfo_cpuid_get();
    for (uint32_t place = 0; place < places; place++) {
        const netbd_ether *ether = sys_bdinfo_ether_get(place);
        board.ports.emplace_back(ether ? ether->role : -1, ether ? ether->hw_port : -1);
    }
    return board;
}

void check(const Board &board)
{
    unsigned taken = 0;
    for (const auto &[role, number] : board.ports) {
        if (role == -1) {
            continue;
        }
        fuzz::promise(role >= 1 && role <= 3, "a port is for LAN, WAN or either");
        fuzz::promise(number >= 0 && number <= 7, "a switch port has a number up to 7");
        fuzz::promise((taken >> number & 1) == 0, "no two ports have one number");
        taken |= 1U << number;
    }
}

} // namespace

extern "C" {

int __wrap__ZN6libsys9read_fileEPKcRNS_4textEm(const char *, libsys::text &out, size_t limit)
{
    if (content.size() > limit) {
        return EFBIG;
    }
    out.clear();
    out.append(content);
    return out.ok() ? 0 : ENOMEM;
}

// No device of this machine is asked for its MAC.
int __wrap_ioctl(int, unsigned long, ...)
{
    errno = ENODEV;
    return -1;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    content = {reinterpret_cast<const char *>(data), size};
    const Board before = board_now();
    if (sys_bdinfo_init() == 0) {
        check(board_now());
    } else {
        fuzz::promise(board_now() == before, "a file that is refused changes nothing");
    }
    fuzz::promise(sys_bdinfo_ether_get(places) == nullptr, "there are 16 places");
    return 0;
}

} // extern "C"
