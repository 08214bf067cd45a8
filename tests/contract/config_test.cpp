#include "platform/config.h"
#include "sandbox.h"

#include <cerrno>
#include <filesystem>
#include <unistd.h>

namespace {

struct Walk {
    std::string seen;
    const char *stop_at = nullptr;
    int result = 0;
};

int note(uci_context *ctx, uci_section *section, void *arg)
{
    auto *walk = static_cast<Walk *>(arg);
    std::string id = ucilib_lookup_option_string(ctx, section, "id", "unnamed");
    walk->seen += id + " ";
    return walk->stop_at && id == walk->stop_at ? walk->result : 0;
}

class Config : public SandboxTest {
protected:
    static void package(std::string_view text) { write_file("/etc/config/lan_intf", text); }
    static void sections(const std::vector<std::string> &ids)
    {
        std::string text;
        for (const std::string &id : ids) {
            text += "config interface\n\toption id " + id + "\n";
        }
        package(text);
    }
};

TEST_F(Config, SectionsOfOneTypeInFileOrder)
{
    package("config interface lan2\n\toption id b\nconfig other x\n\toption id x\nconfig interface lan1\n"
            "\toption id a\nconfig interface\n");
    Walk walk;
    EXPECT_EQ(0, ucilib_foreach_section("lan_intf", "interface", note, &walk));
    EXPECT_EQ("b a unnamed ", walk.seen);
    Walk none;
    EXPECT_EQ(0, ucilib_foreach_section("lan_intf", "absent", note, &none));
    EXPECT_EQ("", none.seen);
}

TEST_F(Config, NonZeroCallbackStopsAndIsTheResult)
{
    sections({"a", "b", "c"});
    Walk walk;
    walk.stop_at = "b";
    walk.result = -17;
    EXPECT_EQ(-17, ucilib_foreach_section("lan_intf", "interface", note, &walk));
    EXPECT_EQ("a b ", walk.seen);
}

TEST_F(Config, PackageThatCannotBeLoaded)
{
    StderrCapture err;
    Walk walk;
    EXPECT_NE(0, ucilib_foreach_section("lan_intf", "interface", note, &walk));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ("debug: ucilib_foreach_section(lan_intf, interface): No such file or directory\n", err.text());
    std::filesystem::create_directories("/etc/config/lan_intf");
    EXPECT_NE(0, ucilib_foreach_section("lan_intf", "interface", note, &walk));
    EXPECT_NE(0, ucilib_foreach_section("../etc", "interface", note, &walk));
    EXPECT_EQ("", walk.seen);
}

TEST_F(Config, SyntaxErrorsAreToldWithTheirPlace)
{
    package("config interface lan1\n\toption enable '1\n");
    StderrCapture err;
    Walk walk;
    EXPECT_NE(0, ucilib_foreach_section("lan_intf", "interface", note, &walk));
    EXPECT_EQ(EBADMSG, errno);
    EXPECT_EQ("", walk.seen);
    EXPECT_EQ(
        "error: configuration package lan_intf: Parse error (EOF with unterminated ') at line 2, byte 18\n"
        "debug: ucilib_foreach_section(lan_intf, interface): Bad message\n",
        err.text());
}

TEST_F(Config, EachWalkReadsTheFileAfresh)
{
    sections({"a"});
    Walk first;
    EXPECT_EQ(0, ucilib_foreach_section("lan_intf", "interface", note, &first));
    sections({"b"});
    Walk second;
    EXPECT_EQ(0, ucilib_foreach_section("lan_intf", "interface", note, &second));
    EXPECT_EQ("a b ", first.seen + second.seen);
}

// A configuration is what has been committed. Saved changes are anybody's: their folder is made by who comes
// first.
TEST_F(Config, SavedChangesAreNotApplied)
{
    package("config interface wan1\n\toption id committed\n");
    for (uid_t owner : {0U, 65534U}) {
        write_file("/tmp/.uci/lan_intf", "lan_intf.wan1.id='saved'\nlan_intf.wan9='interface'\n");
        ASSERT_EQ(0, chown("/tmp/.uci", owner, owner));
        ASSERT_EQ(0, chown("/tmp/.uci/lan_intf", owner, owner));
        Walk walk;
        EXPECT_EQ(0, ucilib_foreach_section("lan_intf", "interface", note, &walk));
        EXPECT_EQ("committed ", walk.seen) << owner;
    }
}

TEST_F(Config, APackageIsAFileOfTheFolderItself)
{
    package("config interface lan1\n\toption id a\n");
    StderrCapture err;
    for (const char *name : {"", ".", "..", "../config/lan_intf", "/etc/config/lan_intf", "./lan_intf"}) {
        Walk walk;
        EXPECT_NE(0, ucilib_foreach_section(name, "interface", note, &walk)) << name;
        EXPECT_EQ("", walk.seen) << name;
    }
    Walk walk;
    EXPECT_NE(0, ucilib_foreach_section(std::string(300, 'x').c_str(), "interface", note, &walk));
    EXPECT_EQ(EINVAL, errno);
}

int walk_again(uci_context *, uci_section *, void *arg)
{
    return ucilib_foreach_section("lan_intf", "interface", note, arg);
}

TEST_F(Config, WalksMayNest)
{
    sections({"a", "b"});
    Walk walk;
    EXPECT_EQ(0, ucilib_foreach_section("lan_intf", "interface", walk_again, &walk));
    EXPECT_EQ("a b a b ", walk.seen);
}

int look(uci_context *ctx, uci_section *section, void *)
{
    EXPECT_STREQ("1", ucilib_lookup_option_string(ctx, section, "text", nullptr));
    EXPECT_EQ(nullptr, ucilib_lookup_option_string(ctx, section, "absent", nullptr));
    EXPECT_STREQ("d", ucilib_lookup_option_string(ctx, section, "absent", "d"));
    EXPECT_STREQ("d", ucilib_lookup_option_string(ctx, section, "list", "d"));
    EXPECT_STREQ("d", ucilib_lookup_option_string(ctx, section, "empty", "d"));
    EXPECT_STREQ("d", ucilib_lookup_option_string(nullptr, section, "text", "d"));
    EXPECT_STREQ("d", ucilib_lookup_option_string(ctx, nullptr, "text", "d"));
    EXPECT_STREQ("d", ucilib_lookup_option_string(ctx, section, nullptr, "d"));
    return 7;
}

TEST_F(Config, OptionTextOrDefault)
{
    package("config interface a\n\toption text 1\n\tlist list x\n\toption empty ''\n");
    EXPECT_EQ(7, ucilib_foreach_section("lan_intf", "interface", look, nullptr));
}

TEST_F(Config, NullArgumentsAreErrors)
{
    StderrCapture err;
    EXPECT_NE(0, ucilib_foreach_section(nullptr, "t", note, nullptr));
    EXPECT_NE(0, ucilib_foreach_section("p", nullptr, note, nullptr));
    EXPECT_NE(0, ucilib_foreach_section("p", "t", nullptr, nullptr));
    EXPECT_EQ(EINVAL, errno);
}

} // namespace
