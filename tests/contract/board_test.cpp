#include "platform/board.h"
#include "sandbox.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <ostream>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The board as a text: "index:role@port" for each port there is.
std::string ports()
{
    std::string text;
    for (uint32_t i = 0; i < 20; i++) {
        if (const netbd_ether *ether = sys_bdinfo_ether_get(i)) {
            text += std::to_string(i) + ":" + std::to_string(ether->role) + "@" +
                    std::to_string(ether->hw_port) + " ";
        }
    }
    return text;
}

std::string mac()
{
    const uint8_t *m = sys_bdinfo_macbase_get();
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return text;
}

class Board : public SandboxTest {
protected:
    static void file(std::string_view text) { write_file("/etc/board.json", text); }
    static void with_ports(const std::string &list, const std::string &more = "")
    {
        file("{\"system\":{\"label_macaddr\":\"02:11:22:33:44:55\"}," + more +
             "\"switch\":{\"switch0\":{\"ports\":[" + list + "]}}}");
    }
    // Expects failure with exactly this complaint, and the board as it was.
    static void refused(const std::string &complaint)
    {
        std::string before = ports() + mac();
        StderrCapture err;
        EXPECT_NE(0, sys_bdinfo_init());
        EXPECT_NE(0, errno);
        std::string text = err.text();
        EXPECT_EQ("error: /etc/board.json: " + complaint + "\n", text.substr(0, text.find('\n') + 1));
        EXPECT_NE(std::string::npos, text.find("debug: sys_bdinfo_init(/etc/board.json): "));
        EXPECT_EQ(before, ports() + mac());
    }
};

TEST_F(Board, NothingIsKnownBeforeInit)
{
    EXPECT_EQ("", ports());
    EXPECT_EQ(0u, sys_bdinfo_cpuid_get());
    ASSERT_NE(nullptr, sys_bdinfo_macbase_get());
    EXPECT_EQ("00:00:00:00:00:00", mac());
}

TEST_F(Board, LanPortsCountFromTheFrontAndWanPortsFromTheBack)
{
    with_ports(R"({"num":1,"role":"lan"},{"num":0,"role":"wan"},{"num":2,"role":"lan"},{"num":4,"role":"wan"},
                  {"num":3,"role":"lan,wan"},{"num":6,"device":"eth0"})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("0:1@1 1:1@2 2:3@3 14:2@4 15:2@0 ", ports());
}

TEST_F(Board, IndexIsThePortsOwnWhereGiven)
{
    with_ports(R"({"num":1,"role":"lan"},{"num":0,"role":"wan","index":3},{"num":2,"role":"lan","index":0},
                  {"num":4,"role":"wan"})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("0:1@2 1:1@1 3:2@0 15:2@4 ", ports());
}

TEST_F(Board, CpuPortsAreNotFrontPorts)
{
    with_ports(R"({"num":5,"device":"eth1"},{"num":6,"device":"eth0","need_tag":false})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("", ports());
}

TEST_F(Board, IndexBeyondTheTableHasNoPort)
{
    with_ports(R"({"num":1,"role":"lan"})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ(nullptr, sys_bdinfo_ether_get(1));
    EXPECT_EQ(nullptr, sys_bdinfo_ether_get(16));
    EXPECT_EQ(nullptr, sys_bdinfo_ether_get(UINT32_MAX));
}

TEST_F(Board, BaseMacFromTheLabel)
{
    file(R"({"system":{"label_macaddr":"02:Aa:bB:33:44:55"},"network":{"lan":{"macaddr":"02:00:00:00:00:01"}},
             "switch":{"switch0":{"ports":[]}}})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("02:aa:bb:33:44:55", mac());
}

TEST_F(Board, BaseMacFromTheLan)
{
    file(R"({"network":{"lan":{"macaddr":"02:00:00:00:00:01"}},"switch":{"switch0":{"ports":[]}}})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("02:00:00:00:00:01", mac());
}

TEST_F(Board, BaseMacOfTheDevice)
{
    int tap = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
    if (tap < 0) {
        GTEST_SKIP() << "needs /dev/net/tun: " << strerror(errno);
    }
    ifreq request{};
    strcpy(request.ifr_name, "eth0");
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    ASSERT_EQ(0, ioctl(tap, TUNSETIFF, &request));
    const unsigned char address[] = {0x02, 1, 2, 3, 4, 5};
    request.ifr_hwaddr.sa_family = 1;
    memcpy(request.ifr_hwaddr.sa_data, address, sizeof address);
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, ioctl(fd, SIOCSIFHWADDR, &request));
    file(R"({"switch":{"switch0":{"ports":[]}}})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("02:01:02:03:04:05", mac());
    close(fd);
    close(tap);
}

TEST_F(Board, NoMacAnywhere)
{
    file(R"({"switch":{"switch0":{"ports":[]}}})");
    refused("system.label_macaddr: is missing, and eth0 has no MAC: No such device");
}

TEST_F(Board, CpuIdentifierIsHexadecimalTextOrZero)
{
    with_ports("", R"("ivarode":{"cpuid":"0xC7a6e2d1"},)");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ(0xc7a6e2d1u, sys_bdinfo_cpuid_get());
    with_ports("", R"("ivarode":{"cpuid":"7621"},)");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ(0x7621u, sys_bdinfo_cpuid_get());
    with_ports("");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ(0u, sys_bdinfo_cpuid_get());
}

TEST_F(Board, ReadAgainOnEachInit)
{
    with_ports(R"({"num":1,"role":"lan"})");
    ASSERT_EQ(0, sys_bdinfo_init());
    const netbd_ether *kept = sys_bdinfo_ether_get(0);
    with_ports(R"({"num":4,"role":"wan","index":0})");
    ASSERT_EQ(0, sys_bdinfo_init());
    EXPECT_EQ("0:2@4 ", ports());
    EXPECT_EQ(4, kept->hw_port);
}

TEST_F(Board, MissingFile)
{
    StderrCapture err;
    EXPECT_NE(0, sys_bdinfo_init());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ("error: /etc/board.json: No such file or directory\n"
              "debug: sys_bdinfo_init(/etc/board.json): No such file or directory\n",
              err.text());
}

TEST_F(Board, FailureKeepsTheBoardAsItWas)
{
    with_ports(R"({"num":1,"role":"lan"})");
    ASSERT_EQ(0, sys_bdinfo_init());
    with_ports(R"({"num":2,"role":"wan"},{"num":2,"role":"lan"})");
    refused("switch.switch0.ports[1].num: is the number of another port too");
    EXPECT_EQ("0:1@1 ", ports());
}

struct Broken {
    const char *name;
    const char *text;
    const char *complaint;
};

void PrintTo(const Broken &broken, std::ostream *stream)
{
    *stream << broken.name;
}

class BrokenBoard : public Board, public testing::WithParamInterface<Broken> {};

TEST_P(BrokenBoard, IsRefusedWithFileKeyAndReason)
{
    file(GetParam().text);
    refused(GetParam().complaint);
}

#define PORTS(list)                                                                                          \
    "{\"switch\":{\"switch0\":{\"ports\":[" list "]}},\"system\":{\"label_macaddr\":\"02:00:00:00:00:01\"}}"
#define PORT0 "switch.switch0.ports[0]"

INSTANTIATE_TEST_SUITE_P(
    All, BrokenBoard,
    testing::Values(
        Broken{"empty", "", "(whole file): ends too early"},
        Broken{"cut", "{\n\"switch\":{", "(whole file): ends too early"},
        Broken{"syntax", "{\n\"switch\" 1}",
               "(whole file): object property name separator ':' expected at line 2"},
        Broken{"rest", "{}\n x", "(whole file): unexpected character at line 2"},
        Broken{"array", "[]", "(whole file): is not an object"},
        Broken{"null", "null", "(whole file): is not an object"},
        Broken{"no_switch", "{}", "switch.switch0.ports: is missing"},
        Broken{"switch_text", "{\"switch\":\"x\"}", "switch.switch0.ports: is missing"},
        Broken{"ports_object", "{\"switch\":{\"switch0\":{\"ports\":{}}}}",
               "switch.switch0.ports: is not an array"},
        Broken{"port_text", PORTS("\"x\""), PORT0 ": needs either \"role\" or \"device\""},
        Broken{"port_null", PORTS("null"), PORT0 ": needs either \"role\" or \"device\""},
        Broken{"both", PORTS("{\"num\":1,\"role\":\"lan\",\"device\":\"eth0\"}"),
               PORT0 ": needs either \"role\" or \"device\""},
        Broken{"role", PORTS("{\"num\":1,\"role\":\"dmz\"}"),
               PORT0 ".role: is not \"lan\", \"wan\" or \"lan,wan\""},
        Broken{"role_number", PORTS("{\"num\":1,\"role\":1}"),
               PORT0 ".role: is not \"lan\", \"wan\" or \"lan,wan\""},
        Broken{"no_num", PORTS("{\"role\":\"lan\"}"), PORT0 ".num: is not a whole number"},
        Broken{"num_text", PORTS("{\"num\":\"1\",\"role\":\"lan\"}"), PORT0 ".num: is not a whole number"},
        Broken{"num_fraction", PORTS("{\"num\":1.5,\"role\":\"lan\"}"), PORT0 ".num: is not a whole number"},
        Broken{"num_negative", PORTS("{\"num\":-1,\"role\":\"lan\"}"), PORT0 ".num: -1 is outside of 0..7"},
        Broken{"num_large", PORTS("{\"num\":256,\"role\":\"lan\"}"), PORT0 ".num: 256 is outside of 0..7"},
        Broken{"num_huge", PORTS("{\"num\":4294967297,\"role\":\"lan\"}"),
               PORT0 ".num: 4294967297 is outside of 0..7"},
        Broken{"index_large", PORTS("{\"num\":1,\"role\":\"lan\",\"index\":16}"),
               PORT0 ".index: 16 is outside of 0..15"},
        Broken{"index_twice",
               PORTS("{\"num\":1,\"role\":\"lan\",\"index\":2},{\"num\":2,\"role\":\"lan\",\"index\":2}"),
               "switch.switch0.ports[1].index: is the index of another port too"},
        Broken{"mac_short",
               "{\"switch\":{\"switch0\":{\"ports\":[]}},\"system\":{\"label_macaddr\":\"02:11:22:33:44\"}}",
               "system.label_macaddr: is not a MAC address"},
        Broken{"mac_long",
               "{\"switch\":{\"switch0\":{\"ports\":[]}},\"system\":{\"label_macaddr\":\"02:11:22:33:44:55:"
               "66\"}}",
               "system.label_macaddr: is not a MAC address"},
        Broken{"mac_type", "{\"switch\":{\"switch0\":{\"ports\":[]}},\"network\":{\"lan\":{\"macaddr\":5}}}",
               "network.lan.macaddr: is not a MAC address"},
        Broken{
            "cpuid_number",
            "{\"switch\":{\"switch0\":{\"ports\":[]}},\"system\":{\"label_macaddr\":\"02:00:00:00:00:01\"},"
            "\"ivarode\":{\"cpuid\":5}}",
            "ivarode.cpuid: is not a hexadecimal text of up to 8 digits"},
        Broken{
            "cpuid_long",
            "{\"switch\":{\"switch0\":{\"ports\":[]}},\"system\":{\"label_macaddr\":\"02:00:00:00:00:01\"},"
            "\"ivarode\":{\"cpuid\":\"0x123456789\"}}",
            "ivarode.cpuid: is not a hexadecimal text of up to 8 digits"}),
    [](const testing::TestParamInfo<Broken> &param) { return std::string(param.param.name); });

TEST_F(Board, HostileFiles)
{
    file(std::string(2 << 20, ' '));
    StderrCapture err;
    EXPECT_NE(0, sys_bdinfo_init());
    EXPECT_EQ(EFBIG, errno);
    file(std::string(100000, '['));
    EXPECT_NE(0, sys_bdinfo_init());
    file(std::string("{}\0{}", 5));
    EXPECT_NE(0, sys_bdinfo_init());
    unlink("/etc/board.json");
    ASSERT_EQ(0, mkdir("/etc/board.json", 0755));
    EXPECT_NE(0, sys_bdinfo_init());
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ("", ports());
}

TEST_F(Board, EveryPortOfTheSwitchFits)
{
    std::string list;
    for (int i = 0; i < 8; i++) {
        list += std::string(i ? "," : "") + "{\"num\":" + std::to_string(i) + ",\"role\":\"lan\"}";
    }
    with_ports(list);
    ASSERT_EQ(0, sys_bdinfo_init());
    with_ports(list + ",{\"num\":8,\"role\":\"lan\"}");
    refused("switch.switch0.ports[8].num: 8 is outside of 0..7");
}

} // namespace
