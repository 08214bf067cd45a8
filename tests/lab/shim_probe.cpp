// Issues the private ioctls the way the router's programs do, one per argument triple, and prints a line for
// each: the value, "ok", or "errno N". Run with and without the shim by its test.
//
//   read DEV OFFSET | write DEV OFFSET VALUE | mii-read DEV PHY REG | mii-write DEV PHY REG VALUE | null DEV
//   | other DEV
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

uint32_t number(const char *text)
{
    return static_cast<uint32_t>(strtoul(text, nullptr, 0));
}

void request(int fd, const char *device, unsigned long code, uint32_t *block, const uint32_t *answer)
{
    ifreq ifr{};
    strncpy(ifr.ifr_name, device, IFNAMSIZ - 1);
    ifr.ifr_data = reinterpret_cast<char *>(block);
    if (ioctl(fd, code, &ifr) < 0) {
        printf("errno %d\n", errno);
    } else if (answer) {
        printf("0x%x\n", *answer);
    } else {
        puts("ok");
    }
}

int run(int fd, char **words)
{
    uint32_t block[4] = {0, 0, 0, 0xdeadbeef};
    const char *device = words[1];
    if (strcmp(words[0], "read") == 0) {
        block[0] = number(words[2]);
        request(fd, device, 0x89F1, block, &block[1]);
        return 3;
    }
    if (strcmp(words[0], "write") == 0) {
        block[0] = number(words[2]);
        block[1] = number(words[3]);
        request(fd, device, 0x89F2, block, nullptr);
        return 4;
    }
    block[0] = words[2] ? number(words[2]) : 0;
    block[1] = words[2] && words[3] ? number(words[3]) : 0;
    if (strcmp(words[0], "mii-read") == 0) {
        request(fd, device, 0x89F3, block, &block[3]);
        return 4;
    }
    if (strcmp(words[0], "mii-write") == 0) {
        block[2] = number(words[4]);
        request(fd, device, 0x89F4, block, nullptr);
        return 5;
    }
    if (strcmp(words[0], "null") == 0) {
        request(fd, device, 0x89F1, nullptr, nullptr);
        return 2;
    }
    request(fd, device, SIOCGIFFLAGS, block, nullptr);
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    for (int i = 1; i < argc;) {
        i += run(fd, argv + i);
    }
    close(fd);
    const uint32_t unused = 0;
    uint32_t block[2] = {0x98, 0};
    request(fd, "eth0", 0x89F1, block, &unused); // on a closed descriptor
}
