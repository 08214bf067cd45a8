// Preloaded into the router's processes in the lab: answers the Ethernet driver's four private ioctls on
// "eth0" from the emulated switch and PHYs, so that the unchanged programs find the hardware they were made
// for.
//
// LAB_REGS names the register file (laid out as physical memory), LAB_PHYS the file of the PHYs; without
// them they are where a board has them, because a router's programs may be started with an empty environment.
// Where there are no such files, and for every other request or interface, the call goes to the C library.
// Errors as a driver gives them: ENODEV when the files cannot be mapped, EINVAL for a register offset outside
// the block, EIO for an impossible PHY address.
#include "mapped_file.h"
#include "phy.h"
#include "places.h"
#include "platform/switch_driver.h"
#include "switch_regs.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Hardware {
    lab::MappedFile regs;
    lab::MappedFile phys;
};

// Never destroyed: a process may use its switch until its very end, after static destructors have run.
alignas(Hardware) unsigned char hardware_storage[sizeof(Hardware)];
Hardware *hardware_mapped = nullptr;

const char *named(const char *variable, const char *on_a_board)
{
    const char *name = getenv(variable);
    return name != nullptr ? name : on_a_board;
}

bool in_a_lab()
{
    return getenv("LAB_REGS") != nullptr || access(lab::phys_path, F_OK) == 0;
}

Hardware *hardware()
{
    if (hardware_mapped != nullptr) {
        return hardware_mapped;
    }
    const char *regs = named("LAB_REGS", lab::registers_path);
    const char *phys = named("LAB_PHYS", lab::phys_path);
    auto *fresh = ::new (static_cast<void *>(hardware_storage)) Hardware;
    if (fresh->regs.open(regs, lab::switch_physical_base, lab::switch_block_size, false) == 0 &&
        fresh->phys.open(phys, 0, sizeof(lab::PhyFile), false) == 0 &&
        fresh->phys.as<lab::PhyFile>()->magic.load() == lab::PhyFile::valid) {
        hardware_mapped = fresh;
    } else {
        fresh->~Hardware();
    }
    return hardware_mapped;
}

int fail(int error)
{
    errno = error;
    return -1;
}

int serve_register(Hardware &board, unsigned long request, switch_reg_block *block)
{
    if (!lab::switch_offset_valid(block->offset)) {
        return fail(EINVAL);
    }
    const lab::SwitchRegs regs(board.regs.as<volatile uint32_t>());
    if (request == switch_reg_read) {
        block->value = regs.read(block->offset);
    } else {
        regs.write(block->offset, block->value);
    }
    return 0;
}

int serve_phy(Hardware &board, unsigned long request, switch_mii_block *block)
{
    auto &phys = *board.phys.as<lab::PhyFile>();
    if (request == switch_mii_write) {
        return lab::mii_write(phys, block->phy, block->reg, static_cast<uint16_t>(block->value_in))
                   ? 0
                   : fail(EIO);
    }
    uint16_t value = 0;
    if (!lab::mii_read(phys, block->phy, block->reg, value)) {
        return fail(EIO);
    }
    block->value_out = value;
    return 0;
}

bool is_ours(unsigned long request, const void *argument)
{
    if (request < switch_reg_read || request > switch_mii_write || argument == nullptr || !in_a_lab()) {
        return false;
    }
    return strncmp(static_cast<const ifreq *>(argument)->ifr_name, "eth0", IFNAMSIZ) == 0;
}

int serve(int fd, unsigned long request, const ifreq *ifr)
{
    if (fcntl(fd, F_GETFD) < 0) {
        return -1;
    }
    void *block = ifr->ifr_data;
    if (block == nullptr) {
        return fail(EFAULT);
    }
    Hardware *board = hardware();
    if (board == nullptr) {
        return fail(ENODEV);
    }
    return request == switch_reg_read || request == switch_reg_write
               ? serve_register(*board, request, static_cast<switch_reg_block *>(block))
               : serve_phy(*board, request, static_cast<switch_mii_block *>(block));
}

using IoctlFunction = int (*)(int, unsigned long, ...);

int pass_on(int fd, unsigned long request, void *argument)
{
    static auto next = reinterpret_cast<IoctlFunction>(dlsym(RTLD_NEXT, "ioctl"));
    return next != nullptr ? next(fd, request, argument)
                           : static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    // Requests are 32 bits wide; a caller with a signed request type hands them over sign-extended.
    const unsigned long wanted = static_cast<uint32_t>(request);
    return is_ours(wanted, argument) ? serve(fd, wanted, static_cast<const ifreq *>(argument))
                                     : pass_on(fd, request, argument);
}
