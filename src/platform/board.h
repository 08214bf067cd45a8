// Board information, CPU registers and the kernel's port query. 0 success, non-zero failure.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// One Ethernet port of the board. Owned by the platform library; lives as long as the process.
struct netbd_ether {
    uint8_t role;    // 1 LAN, 2 WAN, 3 either
    uint8_t hw_port; // switch port
};

int sys_bdinfo_init(void);
// The board's base MAC, 6 bytes.
const uint8_t *sys_bdinfo_macbase_get(void);
uint32_t sys_bdinfo_cpuid_get(void);
// The port at an Ethernet index 0..15, or null where the board has none.
const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index);

// One 32-bit CPU register by physical address.
int mtklib_cpu_reg_rd(uint32_t addr, uint32_t *value);
int mtklib_cpu_reg_wr(uint32_t addr, uint32_t value);

// Asks the kernel and waits for its answer.
static const uint32_t knl_port_status = 0xB0000002; // a type: eight 32-bit words, one for each switch port
int knl_send_and_wait_response(uint32_t type, const void *req, uint32_t req_len, void *reply,
                               uint32_t reply_size, uint32_t *reply_len);

#ifdef __cplusplus
}
#endif
