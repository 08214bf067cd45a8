#include "board/switch_mii.h"

#include "board/vlan.h"
#include "core/log.h"
#include "core/result.h"
#include "core/scope.h"
#include "platform/safestr.h"
#include "platform/switch_driver.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t mii_control_power_down = 0x800;

// One private ioctl on "eth0". 0, rv_socket or rv_ioctl. The type of its number fits into what ioctl takes,
// which is an int in some C libraries and an unsigned long in others.
int driver_call(uint16_t request, void *block)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        return rv_socket;
    }
    const scope_release closer(fd, close);
    struct ifreq ifr = {};
    strncpy_safe_record(ifr.ifr_name, "eth0", IFNAMSIZ - 1, __func__, __LINE__);
    ifr.ifr_data = static_cast<char *>(block);
    return ioctl(fd, request, &ifr) < 0 ? rv_ioctl : rv_ok;
}

int phy_control_change(uint32_t phy, uint32_t clear, uint32_t set)
{
    uint32_t control = 0;
    if (const int rv = mtksw_mii_read(phy, mii_control, &control); rv != rv_ok) {
        return rv;
    }
    return mtksw_mii_write(phy, mii_control, (control & ~clear) | set);
}

} // namespace

int mtksw_reg_read(uint32_t offset, uint32_t *value)
{
    if (value == nullptr) {
        return rv_invalid;
    }
    switch_reg_block block = {offset, 0};
    if (const int rv = driver_call(switch_reg_read, &block); rv != rv_ok) {
        return rv;
    }
    *value = block.value;
    return rv_ok;
}

int mtksw_reg_write(uint32_t offset, uint32_t value)
{
    switch_reg_block block = {offset, value};
    return driver_call(switch_reg_write, &block);
}

int mtksw_mii_read(uint32_t phy, uint32_t reg, uint32_t *value)
{
    switch_mii_block block = {phy, reg, 0, 0};
    switch (driver_call(switch_mii_read, &block)) {
    case rv_ok:
        *value = block.value_out;
        return rv_ok;
    case rv_socket:
        NET_ERROR("mii_read Open socket failed\n");
        return rv_fail;
    default:
        NET_ERROR("mii_read: ioctl error\n");
        return rv_fail;
    }
}

int mtksw_mii_write(uint32_t phy, uint32_t reg, uint32_t value)
{
    switch_mii_block block = {phy, reg, value, 0};
    switch (driver_call(switch_mii_write, &block)) {
    case rv_ok:
        return rv_ok;
    case rv_socket:
        NET_ERROR("mii_write Open socket failed\n");
        return rv_fail;
    default:
        NET_ERROR("mii_write: ioctl error\n");
        return rv_fail;
    }
}

int mtksw_phy_power_down(uint32_t phy)
{
    return phy_control_change(phy, 0, mii_control_power_down);
}

int mtksw_phy_power_up(uint32_t phy)
{
    return phy_control_change(phy, mii_control_power_down, 0);
}

int mtksw_phy_power_up_all()
{
    int result = rv_ok;
    for (uint32_t phy = 0; phy < front_port_count; ++phy) {
        if (mtksw_phy_power_up(phy) != rv_ok) {
            NET_ERROR("php port up error,i = %d\n", phy);
            result = rv_fail;
        }
    }
    return result;
}
