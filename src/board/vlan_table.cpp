#include "board/vlan_table.h"

#include "board/switch_mii.h"
#include "board/vlan.h"
#include "core/result.h"
#include "platform/switch_driver.h"

namespace {

constexpr uint32_t vid_limit = 4096;
constexpr uint32_t vid_mask = 0xfff;
constexpr uint32_t vid_bits = 12;
constexpr uint32_t member_bits = 8;
constexpr uint32_t member_mask = 0x7f; // ports 0..6

// A register holds two VLAN IDs, or four member bytes.
constexpr uint32_t vid_register(uint32_t index)
{
    return switch_vlan_id + 4 * (index / 2);
}
constexpr uint32_t vid_shift(uint32_t index)
{
    return vid_bits * (index % 2);
}
constexpr uint32_t member_register(uint32_t index)
{
    return switch_vlan_members + 4 * (index / 4);
}
constexpr uint32_t member_shift(uint32_t index)
{
    return member_bits * (index % 4);
}

// Only the other entry's ID survives a write: the register's top byte is written as zero.
constexpr uint32_t vid_kept(uint32_t index)
{
    return vid_mask << vid_shift(index ^ 1U);
}

} // namespace

int mtksw_vlan_entry_set(uint32_t index, uint32_t vid, uint32_t members)
{
    if (index >= vlan_entry_count || vid >= vid_limit) {
        return rv_invalid;
    }
    uint32_t value = 0;
    if (const int rv = mtksw_reg_read(vid_register(index), &value); rv != rv_ok) {
        return rv;
    }
    value = (value & vid_kept(index)) | (vid << vid_shift(index));
    if (const int rv = mtksw_reg_write(vid_register(index), value); rv != rv_ok) {
        return rv;
    }
    if (const int rv = mtksw_reg_read(member_register(index), &value); rv != rv_ok) {
        return rv;
    }
    value = (value & ~(0xffU << member_shift(index))) | (members << member_shift(index));
    return mtksw_reg_write(member_register(index), value);
}

int mtksw_vlan_entry_get(uint32_t index, uint32_t *vid, uint32_t *members)
{
    if (index >= vlan_entry_count) {
        return rv_invalid;
    }
    uint32_t value = 0;
    if (const int rv = mtksw_reg_read(vid_register(index), &value); rv != rv_ok) {
        return rv;
    }
    *vid = (value >> vid_shift(index)) & vid_mask;
    if (const int rv = mtksw_reg_read(member_register(index), &value); rv != rv_ok) {
        return rv;
    }
    *members = (value >> member_shift(index)) & member_mask;
    return rv_ok;
}

int mtksw_vlan_entry_find(uint32_t vid, int allocate)
{
    uint32_t entry_vid = 0;
    uint32_t members = 0;
    for (uint32_t index = vlan_pool_first; index < vlan_entry_count; ++index) {
        if (mtksw_vlan_entry_get(index, &entry_vid, &members) == rv_ok && entry_vid == vid) {
            return static_cast<int>(index);
        }
    }
    if (allocate == 0) {
        return -1;
    }
    for (uint32_t index = vlan_pool_first; index < vlan_entry_count; ++index) {
        if (mtksw_vlan_entry_get(index, &entry_vid, &members) == rv_ok && members == 0) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

int mtksw_vlan_member_set(uint32_t index, uint32_t vid, uint32_t hw_port)
{
    if (index == vlan_index_by_vid) {
        // A failed search gives index -1, which the read refuses.
        index = static_cast<uint32_t>(mtksw_vlan_entry_find(vid, 1));
    }
    uint32_t entry_vid = 0;
    uint32_t members = 0;
    if (const int rv = mtksw_vlan_entry_get(index, &entry_vid, &members); rv != rv_ok && rv != rv_no_entry) {
        return rv;
    }
    return mtksw_vlan_entry_set(index, vid, members | port_bit(hw_port));
}

int mtksw_vlan_member_clear(uint32_t index, uint32_t vid, uint32_t hw_port)
{
    const bool by_vid = index == vlan_index_by_vid;
    if (by_vid) {
        index = static_cast<uint32_t>(mtksw_vlan_entry_find(vid, 0));
    }
    uint32_t entry_vid = 0;
    uint32_t members = 0;
    if (const int rv = mtksw_vlan_entry_get(index, &entry_vid, &members); rv != rv_ok) {
        return rv;
    }
    members &= ~port_bit(hw_port);
    if (!by_vid) {
        return mtksw_vlan_entry_set(index, vid, members);
    }
    if (hw_port == cpu_port_eth0 && members != 0) {
        return rv_ok;
    }
    return mtksw_vlan_entry_set(index, members != 0 ? vid : 0, members);
}
