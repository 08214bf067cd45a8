// Handing DHCP server pools over.

#include "daemon_test.h"
#include "netintf/dhcp_pool.h"
#include "netintf/reply.h"
#include "platform/config.h"

namespace unit {
namespace {

using Options = std::map<std::string, std::string>;

const Options whole = {{"enable", "1"},         {"lease_time", "3600"},  {"intf", "lan1"},
                       {"ipstart", "10.0.0.2"}, {"ipend", "10.0.0.9"},   {"ipmask", "255.0.0.0"},
                       {"route", "10.0.0.1"},   {"dnsmajor", "1.1.1.1"}, {"dnsminor", "2.2.2.2"}};

class DhcpPool : public DaemonTest {
protected:
    static int init(const Options &options)
    {
        world.sections = {{"dhcp", "dhcp", "pool1", options}};
        return netintf_dhcps_init();
    }
    static Options without(const char *option)
    {
        Options options = whole;
        options.erase(option);
        return options;
    }
    static Options with(const char *option, const char *value)
    {
        Options options = whole;
        options[option] = value;
        return options;
    }
};

std::string pushed(const char *lease)
{
    return std::string{
               "ubuslib_invoke_call('dnsmasq.dhcp', 'add', {name: 'pool1', intf: 'lan1', ipstart: "
               "'10.0.0.2', "
               "ipend: '10.0.0.9', ipmask: '255.0.0.0', route: '10.0.0.1', dnsmajor: '1.1.1.1', dnsminor: "
               "'2.2.2.2', lease_time: "} +
           lease + "}, null)";
}

const Lines walked = "ucilib_foreach_section('dhcp', 'dhcp')";

TEST_F(DhcpPool, AnEnabledPoolIsPushed)
{
    EXPECT_EQ(init(whole), 0);
    expect_quiet_trace({walked, pushed("3600")});
    // Once more: the buffer starts anew.
    EXPECT_EQ(init(whole), 0);
    expect_quiet_trace({walked, pushed("3600")});
}

TEST_F(DhcpPool, ADisabledPoolIsPassedOver)
{
    for (const char *off : {"0", "no", "", "00", "0x1"}) {
        EXPECT_EQ(init({{"enable", off}}), 0) << off;
        expect_trace({walked});
    }
    EXPECT_EQ(init(with("enable", "2")), 0);
    expect_trace({walked, pushed("3600")});
}

TEST_F(DhcpPool, LeaseTimesAreDecimal)
{
    const std::pair<const char *, const char *> cases[] = {
        {"60x", "60"}, {"infinite", "0"}, {"", "0"}, {"-1", "-1"}, {"2147483647", "2147483647"}};
    for (const auto &[text, sent] : cases) {
        EXPECT_EQ(init(with("lease_time", text)), 0);
        expect_trace({walked, pushed(sent)});
    }
}

TEST_F(DhcpPool, FailuresOfTheWalk)
{
    EXPECT_EQ(init(without("enable")), -8);
    EXPECT_EQ(init(without("lease_time")), -8);
    for (const char *option : {"intf", "ipstart", "ipend", "ipmask", "route", "dnsmajor", "dnsminor"}) {
        EXPECT_EQ(init(without(option)), -8) << option;
    }
    expect_trace(std::vector<Lines>(9, walked));
    world.packages.erase("dhcp");
    EXPECT_EQ(init(whole), -8);
    expect_trace({walked});
}

int section_result;

int keep_result(uci_context *ctx, uci_section *section, void *arg)
{
    section_result = netintf_dhcps_uci_parse_each(ctx, section, arg);
    return 0;
}

TEST_F(DhcpPool, ResultsOfASection)
{
    const auto result = [](const Options &options) {
        world.sections = {{"dhcp", "dhcp", "pool1", options}};
        section_result = 99;
        EXPECT_EQ(ucilib_foreach_section("dhcp", "dhcp", keep_result, nullptr), 0);
        return section_result;
    };
    EXPECT_EQ(result(whole), 0);
    EXPECT_EQ(result(without("enable")), -8);
    EXPECT_EQ(result(without("lease_time")), -8);
    EXPECT_EQ(result(without("route")), -2);
    fail("ubuslib_invoke_call(");
    EXPECT_EQ(result(whole), -11);
}

TEST_F(DhcpPool, APushNeedsEveryAddress)
{
    const char *given[7] = {"a", "b", "c", "d", "e", "f", "g"};
    for (size_t missing = 0; missing < 7; missing++) {
        const char *texts[7];
        std::copy(std::begin(given), std::end(given), std::begin(texts));
        texts[missing] = nullptr;
        EXPECT_EQ(netintf_dhcps_pool_push("pool1", texts[0], texts[1], texts[2], texts[3], texts[4], texts[5],
                                          texts[6], 1),
                  -2)
            << missing;
    }
    expect_quiet_trace({});
}

TEST_F(DhcpPool, OneFieldIsAddedWithItsTerminator)
{
    blob_buf_init(&netintf_reply, BLOBMSG_TYPE_TABLE);
    netintf_dhcps_add_string("field", "value");
    netintf_bmsg_add_string(nullptr, "");
    EXPECT_EQ(message_text(netintf_reply.head), "{field: 'value', ''}");
}

} // namespace
} // namespace unit
