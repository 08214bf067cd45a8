#include "board/switch_port.h"

#include "board/board_map.h"
#include "board/switch_mii.h"
#include "board/vlan.h"
#include "board/vlan_table.h"
#include "core/log.h"
#include "core/result.h"
#include "platform/switch_driver.h"

namespace {

constexpr uint32_t mii_control_start = 0x3300; // 100 Mbit/s, full duplex, auto-negotiation on and restarted

constexpr uint32_t untag_front_ports = 0x3f; // ports 0..5; the CPU port keeps its tags
constexpr uint32_t untag_bits = 7;
constexpr uint32_t pvid_bits = 12;
constexpr uint32_t pvid_mask = 0xfff;

constexpr uint32_t untag_register(uint32_t entry)
{
    return switch_vlan_untag + 4 * (entry / 4);
}

// Two ports share a PVID register; a write keeps all bits that are not the port's.
constexpr uint32_t pvid_address(uint32_t hw_port)
{
    return switch_physical_base + switch_pvid + 4 * (hw_port / 2);
}
constexpr uint32_t pvid_shift(uint32_t hw_port)
{
    return pvid_bits * (hw_port % 2);
}
constexpr uint32_t pvid_kept(uint32_t hw_port)
{
    return ~(pvid_mask << pvid_shift(hw_port));
}

int reg_set_bits(uint32_t offset, uint32_t bits)
{
    uint32_t value = 0;
    if (const int rv = mtksw_reg_read(offset, &value); rv != rv_ok) {
        return rv;
    }
    return mtksw_reg_write(offset, value | bits);
}

// Lets frames of the port VLANs leave the front ports without a tag.
int untag_init()
{
    if (const int rv = reg_set_bits(switch_untag_control, switch_untag_enable); rv != rv_ok) {
        return rv;
    }
    for (uint32_t entry = 0; entry < front_port_count; ++entry) {
        const uint32_t bits = untag_front_ports << (untag_bits * (entry % 4));
        if (const int rv = reg_set_bits(untag_register(entry), bits); rv != rv_ok) {
            return rv;
        }
    }
    return rv_ok;
}

} // namespace

int mtksw_mii_init()
{
    for (uint32_t phy = 0; phy < front_port_count; ++phy) {
        if (const int rv = mtksw_mii_write(phy, mii_control, mii_control_start); rv != rv_ok) {
            NET_ERROR("%s %d i=%d rv=%d,power up error\n", __func__, 694, phy, rv);
            return rv;
        }
    }
    return rv_ok;
}

int mtksw_mii_init_post()
{
    if (const int rv = mtksw_mii_init(); rv != rv_ok) {
        NET_ERROR("mtk switch mii init failed,rv = %d\r\n", rv);
    }
    return rv_ok;
}

int mtksw_port_pvid_set(uint32_t hw_port, uint32_t pvid)
{
    if (hw_port >= front_port_count) {
        return rv_ok;
    }
    const uint32_t address = pvid_address(hw_port);
    uint32_t value = 0;
    if (mtklib_cpu_reg_rd(address, &value) != 0 ||
        mtklib_cpu_reg_wr(address, (value & pvid_kept(hw_port)) | (pvid << pvid_shift(hw_port))) != 0) {
        NET_ERROR("mtk sw pvid set failed\n");
        return rv_register;
    }
    return rv_ok;
}

int mtksw_port_vlan_init()
{
    for (uint32_t entry = 0; entry < vlan_pool_first; ++entry) {
        mtksw_vlan_entry_set(entry, port_vlan(entry), 0);
    }
    for (uint32_t entry = vlan_pool_first; entry < vlan_entry_count; ++entry) {
        mtksw_vlan_entry_set(entry, 0, 0);
    }
    if (untag_init() != rv_ok) {
        NET_INFO("untag init failed\n");
    }

    uint32_t lan1_port = 0;
    if (const int rv = netbd_lan_hwport_get(1, &lan1_port); rv != rv_ok) {
        return rv;
    }
    for (const struct netbd_ether *port : netbd_info_get().lan_ports) {
        if (port == nullptr) {
            break;
        }
        if (const int rv = mtksw_port_pvid_set(port->hw_port, port_vlan(lan1_port)); rv != rv_ok) {
            return rv;
        }
        if (const int rv = mtksw_vlan_member_set(lan1_port, port_vlan(lan1_port), port->hw_port);
            rv != rv_ok) {
            return rv;
        }
    }
    return rv_ok;
}

int mtksw_port_vlan_init_post()
{
    const int rv = mtksw_port_vlan_init();
    if (rv != rv_ok) {
        NET_ERROR("mtk switch port vlan init failed,rv = %d\r\n", rv);
    }
    return rv;
}

int mtksw_port_link_get(uint32_t, uint32_t *)
{
    return rv_ok;
}
