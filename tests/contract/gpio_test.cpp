// The kernel's side is answered by the test: machines that build this have no GPIO chip.
#include "interpose.h"
#include "platform/output.h"
#include "sandbox.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

namespace {

struct Chips {
    std::vector<gpio_v2_line_request> requests;
    std::vector<int> lines; // our ends of the granted lines
    int grant = 100;        // how many requests succeed
    int error = EBUSY;      // how the others fail
    int interrupts = 0;     // how many times a request is interrupted first
};

class Gpio : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        // Something to open where the kernel has its chips.
        ASSERT_EQ(0, mount("tmpfs", "/dev", "tmpfs", 0, nullptr));
        write_file("/dev/gpiochip0", "");
        write_file("/dev/gpiochip1", "");
        interpose::answer_ioctl([this](int, unsigned long request, void *argument) {
            if (request != GPIO_V2_GET_LINE_IOCTL) {
                return -ENOTTY;
            }
            if (chips.interrupts > 0) {
                chips.interrupts--;
                return -EINTR;
            }
            auto *wanted = static_cast<gpio_v2_line_request *>(argument);
            chips.requests.push_back(*wanted);
            if (static_cast<int>(chips.requests.size()) > chips.grant) {
                return -chips.error;
            }
            int ends[2];
            EXPECT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
            chips.lines.push_back(ends[0]);
            wanted->fd = ends[1];
            return 0;
        });
    }
    static void lines(const std::string &list)
    {
        write_file("/etc/board.json", "{\"ivarode\":{\"gpio\":" + list + "}}");
    }
    // Whether the library still holds a granted line.
    static bool held(int end)
    {
        char byte;
        return read(end, &byte, 1) < 0 && errno == EAGAIN;
    }
    static void refused(const std::string &complaint)
    {
        StderrCapture err;
        EXPECT_NE(0, sys_gpio_init2());
        EXPECT_NE(0, errno);
        std::string text = err.text();
        EXPECT_EQ("error: /etc/board.json: " + complaint + "\n", text.substr(0, text.find('\n') + 1));
        EXPECT_NE(std::string::npos, text.find("debug: sys_gpio_init2(/etc/board.json): "));
    }

    Chips chips;
};

TEST_F(Gpio, NoneConfiguredIsSuccess)
{
    write_file("/etc/board.json", "{}");
    EXPECT_EQ(0, sys_gpio_init2());
    lines("[]");
    EXPECT_EQ(0, sys_gpio_init2());
    EXPECT_TRUE(chips.requests.empty());
}

TEST_F(Gpio, MissingOrMalformedFile)
{
    refused("No such file or directory");
    write_file("/etc/board.json", "{");
    refused("(whole file): ends too early");
}

TEST_F(Gpio, BadEntries)
{
    lines("{}");
    refused("ivarode.gpio: is not an array");
    lines("[5]");
    refused("ivarode.gpio[0].line: is not a whole number");
    lines("[{}]");
    refused("ivarode.gpio[0].line: is not a whole number");
    lines("[{\"line\":-1}]");
    refused("ivarode.gpio[0].line: -1 is outside of 0..65535");
    lines("[{\"line\":1,\"value\":2}]");
    refused("ivarode.gpio[0].value: 2 is outside of 0..1");
    lines("[{\"line\":1,\"value\":\"on\"}]");
    refused("ivarode.gpio[0].value: is not a whole number");
    lines("[{\"line\":1,\"active_low\":1}]");
    refused("ivarode.gpio[0].active_low: is neither true nor false");
    lines("[{\"line\":1,\"name\":1}]");
    refused("ivarode.gpio[0].name: is not a text");
    for (const char *bad :
         {"\"mem\"", "\"gpiochip0/../mem\"", "\"\"", "\"gpiochip00000000000000000000000000000000000000\""}) {
        lines("[{\"line\":1,\"chip\":" + std::string(bad) + "}]");
        refused("ivarode.gpio[0].chip: is not the name of a GPIO chip");
    }
    std::string many = "[{\"line\":1}";
    for (int i = 0; i < 32; i++) {
        many += ",{\"line\":1}";
    }
    lines(many + "]");
    refused("ivarode.gpio: has more than 32 lines");
    EXPECT_TRUE(chips.requests.empty());
}

TEST_F(Gpio, AbsentChip)
{
    lines("[{\"line\":3,\"chip\":\"gpiochip77\"}]");
    refused("ivarode.gpio[0].line: /dev/gpiochip77 line 3: No such file or directory");
}

TEST_F(Gpio, OutputsInputsAndPolarity)
{
    chips.interrupts = 2;
    lines(R"([{"chip":"gpiochip0","line":12,"value":1,"name":"wan-led"},
              {"chip":"gpiochip0","line":7,"value":0,"active_low":true},{"line":0}])");
    EXPECT_EQ(0, sys_gpio_init2());
    ASSERT_EQ(3u, chips.requests.size());
    const gpio_v2_line_request &led = chips.requests[0];
    EXPECT_EQ(1u, led.num_lines);
    EXPECT_EQ(12u, led.offsets[0]);
    EXPECT_STREQ("wan-led", led.consumer);
    EXPECT_EQ(static_cast<uint64_t>(GPIO_V2_LINE_FLAG_OUTPUT), led.config.flags);
    ASSERT_EQ(1u, led.config.num_attrs);
    EXPECT_EQ(static_cast<uint32_t>(GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES), led.config.attrs[0].attr.id);
    EXPECT_EQ(1u, led.config.attrs[0].attr.values);
    EXPECT_EQ(1u, led.config.attrs[0].mask);
    const gpio_v2_line_request &inverted = chips.requests[1];
    EXPECT_EQ(static_cast<uint64_t>(GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW),
              inverted.config.flags);
    EXPECT_EQ(0u, inverted.config.attrs[0].attr.values);
    EXPECT_STREQ("ivarode", inverted.consumer);
    const gpio_v2_line_request &input = chips.requests[2];
    EXPECT_EQ(static_cast<uint64_t>(GPIO_V2_LINE_FLAG_INPUT), input.config.flags);
    EXPECT_EQ(0u, input.config.num_attrs);
    for (int line : chips.lines) {
        EXPECT_TRUE(held(line));
    }
    EXPECT_EQ(0, sys_gpio_init2());
    EXPECT_EQ(3u, chips.requests.size());
}

TEST_F(Gpio, AfterARefusedLineNoneIsHeld)
{
    chips.grant = 1;
    lines(R"([{"chip":"gpiochip1","line":1},{"chip":"gpiochip1","line":2}])");
    refused("ivarode.gpio[1].line: /dev/gpiochip1 line 2: Device or resource busy");
    ASSERT_EQ(1u, chips.lines.size());
    EXPECT_FALSE(held(chips.lines[0]));
}

} // namespace
