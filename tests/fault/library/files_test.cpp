// Files, the board, debug memory, GPIO lines, registers, the database and the configuration.
#include "interpose.h"
#include "phy_double.h"
#include "platform/board.h"
#include "platform/command.h"
#include "platform/config.h"
#include "platform/events.h"
#include "platform/netdev.h"
#include "platform/output.h"
#include "platform/safestr.h"
#include "sandbox.h"
#include "sweep.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/gpio.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class LibraryFiles : public SandboxTest {};

constexpr const char *board_text =
    R"({"system":{"label_macaddr":"02:11:22:33:44:55"},"ivarode":{"cpuid":"0x7621",)"
    R"("gpio":[{"line":3,"value":1},{"line":4}]},"switch":{"switch0":{"ports":[)"
    R"({"num":0,"role":"lan"},{"num":4,"role":"wan"},{"num":6,"device":"eth0"}]}}})";

std::string rows_and_secrets()
{
    return files_below({"/run/ivarode", "/etc/ppp"});
}

void old_row()
{
    unlink("/run/ivarode/wan/wan1");
    netlib_waninfo_db_insert("wan1", "dhcp", "192.0.2.1", "255.255.255.0", "192.0.2.254", nullptr, nullptr);
}

TEST_F(LibraryFiles, WanRows)
{
    Operation insert{.name = "netlib_waninfo_db_insert",
                     .prepare = [] { std::filesystem::remove_all("/run/ivarode"); },
                     .run =
                         [] {
                             return netlib_waninfo_db_insert("wan1", "static", "10.0.0.1", "255.0.0.0",
                                                             "10.0.0.254", "1.1.1.1", nullptr);
                         },
                     .state = rows_and_secrets,
                     .all_or_nothing = true};
    sweep(insert);
    Operation over = insert;
    over.name += " over an old row";
    over.prepare = old_row;
    sweep(over);
    EXPECT_GT(sweep_kills(over), 5U);
    Operation update = over;
    update.name = "netlib_waninfo_db_update";
    update.run = [] {
        return netlib_waninfo_db_update("wan1", "static", "10.0.0.1", "255.0.0.0", nullptr, nullptr, nullptr);
    };
    sweep(update);
    EXPECT_GT(sweep_kills(update), 5U);
    Operation remove = over;
    remove.name = "netlib_waninfo_db_del_byname";
    remove.run = [] { return netlib_waninfo_db_del_byname("wan1"); };
    sweep(remove);
    EXPECT_GT(sweep_kills(remove), 5U);
}

void old_secrets()
{
    std::filesystem::remove_all("/run/ivarode");
    write_file("/etc/ppp/chap-secrets", "# mine\nother isp \"a b\" *\nuser isp old 10.0.0.7\nlast * x\n",
               0600);
}

TEST_F(LibraryFiles, Secrets)
{
    Operation replace{.name = "cslib_entry_add over an old entry",
                      .prepare = old_secrets,
                      .run = [] { return cslib_entry_add("user", "isp", "new one", "*"); },
                      .state = rows_and_secrets,
                      .all_or_nothing = true};
    sweep(replace);
    EXPECT_GT(sweep_kills(replace), 10U);
    Operation add = replace;
    add.name = "cslib_entry_add";
    add.run = [] { return cslib_entry_add("fresh", "isp", "new one", ""); };
    sweep(add);
    EXPECT_GT(sweep_kills(add), 10U);
    Operation remove = replace;
    remove.name = "cslib_entry_del";
    remove.run = [] { return cslib_entry_del("user", "isp"); };
    remove.once = true;
    sweep(remove);
    EXPECT_GT(sweep_kills(remove), 10U);
}

std::string board_state()
{
    std::string text;
    for (uint32_t i = 0; i < 16; i++) {
        if (const netbd_ether *ether = sys_bdinfo_ether_get(i)) {
            text += std::to_string(i) + ":" + std::to_string(ether->role) + "@" +
                    std::to_string(ether->hw_port) + " ";
        }
    }
    return text + std::to_string(sys_bdinfo_cpuid_get()) + " " + std::to_string(sys_bdinfo_macbase_get()[5]);
}

TEST_F(LibraryFiles, Board)
{
    Operation read{.name = "sys_bdinfo_init",
                   .prepare = [] { write_file("/etc/board.json", board_text); },
                   .run = sys_bdinfo_init,
                   .state = board_state,
                   .all_or_nothing = true,
                   .own_lines = true};
    sweep(read);
    Operation by_device = read;
    by_device.name = "sys_bdinfo_init with the MAC of eth0";
    by_device.prepare = [] {
        write_file("/etc/board.json",
                   R"({"switch":{"switch0":{"ports":[{"num":0,"role":"lan"},{"num":4,"role":"wan"}]}}})");
        interpose::answer_ioctl([](int, unsigned long, void *) { return 0; });
    };
    sweep(by_device);
}

TEST_F(LibraryFiles, GpioLines)
{
    ASSERT_EQ(mount("tmpfs", "/dev", "tmpfs", 0, nullptr), 0);
    write_file("/dev/gpiochip0", "");
    sweep({.name = "sys_gpio_init2",
           .prepare =
               [] {
                   write_file("/etc/board.json", board_text);
                   interpose::answer_ioctl([](int, unsigned long request, void *argument) {
                       if (request != GPIO_V2_GET_LINE_IOCTL) {
                           return -ENOTTY;
                       }
                       int line = dup(STDERR_FILENO);
                       static_cast<gpio_v2_line_request *>(argument)->fd = line;
                       return line < 0 ? -errno : 0;
                   });
               },
           .run = sys_gpio_init2,
           .own_lines = true});
}

TEST_F(LibraryFiles, Registers)
{
    ASSERT_EQ(mount("tmpfs", "/dev", "tmpfs", 0, nullptr), 0);
    static uint32_t value;
    Operation write{.name = "mtklib_cpu_reg_wr",
                    .prepare =
                        [] {
                            write_file("/dev/mem", "");
                            if (truncate("/dev/mem", 0x10112000) != 0) {
                                abort();
                            }
                        },
                    .run = [] { return mtklib_cpu_reg_wr(0x10110040, 0x12345678); },
                    .state =
                        [] {
                            int fd = open("/dev/mem", O_RDONLY | O_CLOEXEC);
                            uint32_t word = 0;
                            EXPECT_EQ(pread(fd, &word, sizeof word, 0x10110040), 4);
                            close(fd);
                            return std::to_string(word);
                        },
                    .all_or_nothing = true};
    sweep(write);
    Operation read = write;
    read.name = "mtklib_cpu_reg_rd";
    read.run = [] { return mtklib_cpu_reg_rd(0x10110040, &value); };
    read.state = [] { return std::to_string(value); };
    sweep(read);
}

TEST_F(LibraryFiles, DebugMemory)
{
    Operation area{.name = "netdbg_shm_init",
                   .prepare = [] {},
                   .run = netdbg_shm_init,
                   .state = [] { return std::string(g_netd_dbg_shm ? "mapped" : "none"); },
                   .all_or_nothing = true};
    sweep(area);
    sweep({.name = "libsys_dbg_init", .prepare = [] {}, .run = libsys_dbg_init});
}

TEST_F(LibraryFiles, LongLines)
{
    static const std::string text(3000, 'x');
    sweep({.name = "outlib_notice",
           .prepare = [] {},
           .run = [] { return outlib_notice("%s", text.c_str()); },
           .reports = false});
}

TEST_F(LibraryFiles, Database)
{
    static sqlite3 *db;
    write_file("/tmp/empty.db", "");
    Operation open_one{.name = "sqlite3_db_open and a statement",
                       .prepare =
                           [] {
                               std::filesystem::remove("/tmp/t.db-journal");
                               std::filesystem::copy_file("/tmp/empty.db", "/tmp/t.db",
                                                          std::filesystem::copy_options::overwrite_existing);
                               db = nullptr;
                           },
                       .run =
                           [] {
                               if (sqlite3_db_open("/tmp/t.db", &db) != 0) {
                                   return -1;
                               }
                               int result = sqlite3_db_execsql(db, "CREATE TABLE IF NOT EXISTS t(a);"
                                                                   "DELETE FROM t; INSERT INTO t VALUES(7);");
                               int error = errno;
                               sqlite3_db_colse(db);
                               errno = error;
                               return result;
                           }};
    sweep(open_one);
}

int count_sections(uci_context *ctx, uci_section *section, void *arg)
{
    const char *id = ucilib_lookup_option_string(ctx, section, "id", nullptr);
    *static_cast<unsigned *>(arg) += id && !strcmp(id, "a b") ? 1 : 100;
    return 0;
}

TEST_F(LibraryFiles, Configuration)
{
    static unsigned seen;
    write_file("/etc/config/lan_intf", "config interface\n\toption id 'a b'\n\tlist dns 1.1.1.1\n"
                                       "\tlist dns 8.8.8.8\n\nconfig interface x\n\toption id \"a b\"\n");
    write_file("/tmp/.uci/lan_intf", "lan_intf.x.mtu='1400'\n");
    sweep({.name = "ucilib_foreach_section",
           .prepare = [] { seen = 0; },
           .run =
               [] {
                   seen = 0;
                   return ucilib_foreach_section("lan_intf", "interface", count_sections, &seen);
               },
           .state = [] { return std::to_string(seen); },
           // A lock that is waited for is never refused because somebody has it.
           .excepted =
               [](const seam::Fault &fault) {
                   return !strcmp(fault.call, "flock") && fault.error == EWOULDBLOCK;
               }});
}

TEST_F(LibraryFiles, SwitchPorts)
{
    static uint32_t words[8];
    Operation ask{.name = "knl_send_and_wait_response",
                  .prepare =
                      [] {
                          phy(0).plug();
                          phy(3).plug();
                          memset(words, 0, sizeof words);
                      },
                  .run =
                      [] {
                          uint32_t length = 0;
                          return knl_send_and_wait_response(0xB0000002, nullptr, 0, words, sizeof words,
                                                            &length);
                      },
                  .state =
                      [] {
                          std::string text;
                          for (uint32_t word : words) {
                              text += std::to_string(word) + " ";
                          }
                          return text;
                      },
                  .all_or_nothing = true};
    sweep(ask);
    sweep({.name = "nl_duplex_init", .prepare = [] {}, .run = nl_duplex_init});
}

} // namespace
