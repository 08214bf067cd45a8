#include "interpose.h"
#include "platform/command.h"
#include "sandbox.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <ostream>
#include <random>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *secrets = "/etc/ppp/chap-secrets";

class Secrets : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (!IsSkipped()) {
            std::filesystem::create_directory("/etc/ppp");
        }
    }
    static void file(std::string_view text) { write_file(secrets, text, 0644); }
    static std::string now() { return read_file(secrets); }
    static mode_t mode()
    {
        struct stat info {};
        EXPECT_EQ(0, stat(secrets, &info));
        return info.st_mode & 07777u;
    }
};

TEST_F(Secrets, FirstEntryMakesThePrivateFile)
{
    umask(0);
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "10.0.0.2"));
    EXPECT_EQ("joe isp pw 10.0.0.2\n", now());
    EXPECT_EQ(0600u, mode());
}

TEST_F(Secrets, EntriesAreAppendedAndOtherLinesUntouched)
{
    const std::string before =
        "# Secrets\n\n  odd\t*  \"x y\"   *\t# note\r\nbroken 'quote\n' more\nlast isp pw";
    file(before);
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ(before + "\njoe isp pw *\n", now());
    EXPECT_EQ(0600u, mode());
}

TEST_F(Secrets, SamePairIsReplacedInItsPlace)
{
    file("# top\na isp 1 *\njoe isp old 10.0.0.1 10.0.0.3 # comment\njoe other 2 *\nb isp 3 *\n");
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "new", "10.0.0.2"));
    EXPECT_EQ("# top\na isp 1 *\njoe isp new 10.0.0.2\njoe other 2 *\nb isp 3 *\n", now());
}

TEST_F(Secrets, RepeatedPairLeavesOneEntry)
{
    file("joe isp 1 *\nx y z *\njoe isp 2 *\n'joe' \"isp\" 3");
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "new", "*"));
    EXPECT_EQ("joe isp new *\nx y z *\n", now());
}

TEST_F(Secrets, DeleteTakesThePairOnly)
{
    file("# joe isp\njoe isp 1 *\njoe other 2 *\njoey isp 3 *\njoe isp 4 *\n");
    EXPECT_EQ(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ("# joe isp\njoe other 2 *\njoey isp 3 *\n", now());
    EXPECT_EQ(0600u, mode());
}

TEST_F(Secrets, DeletingAnAbsentEntryIsAnError)
{
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(file_exists(secrets));
    file("a b c *\n");
    EXPECT_NE(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ("a b c *\n", now());
    EXPECT_NE(0, cslib_entry_del("A", "b"));
    EXPECT_NE(0, cslib_entry_del("*", "b"));
    EXPECT_EQ("debug: cslib_entry_del(joe, isp): No such file or directory\n",
              err.text().substr(0, err.text().find('\n') + 1));
}

struct Spelling {
    const char *name;
    const char *written;
    const char *meant;
};

void PrintTo(const Spelling &spelling, std::ostream *stream)
{
    *stream << spelling.name;
}

class Spellings : public Secrets, public testing::WithParamInterface<Spelling> {};

// What pppd takes a word for (as its "dryrun" shows for a user name in an options file, which has the same
// words).
TEST_P(Spellings, AreReadAsPppdReadsThem)
{
    const std::string others = "meant other 1 *\n# note\n";
    for (bool as_client : {true, false}) {
        std::string entry = as_client ? std::string(GetParam().written) + " x 2 *\n"
                                      : "  x\t" + std::string(GetParam().written) + " 2 *\n";
        file(others + entry + others);
        EXPECT_EQ(0, as_client ? cslib_entry_del(GetParam().meant, "x")
                               : cslib_entry_del("x", GetParam().meant));
        EXPECT_EQ(others + others, now());
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, Spellings,
    testing::Values(Spelling{"plain", "joe@isp", "joe@isp"}, Spelling{"double_quotes", "\"jo e\"", "jo e"},
                    Spelling{"single_quotes", "'jo \"e'", "jo \"e"},
                    Spelling{"glued", "a'x\"y'\"b c\"d", "ax\"yb cd"}, Spelling{"blank", "a\\ b", "a b"},
                    Spelling{"quote", "\"a\\\"b\"", "a\"b"}, Spelling{"quote_in_single", "'a\\'b'", "a'b"},
                    Spelling{"backslash", "a\\\\b", "a\\b"}, Spelling{"other", "\\q\\v\\e\\8\\X", "qve8X"},
                    Spelling{"newline", "a\\nb", "a\nb"}, Spelling{"tab", "\"a\\tb\"", "a\tb"},
                    Spelling{"letter_s", "a\\sb", "a b"}, Spelling{"controls", "\\a\\b\\f\\r", "\a\b\f\r"},
                    Spelling{"octal", "\\1014\\12z", "A4\nz"},
                    Spelling{"hexadecimal", "\\x414\\x4z", "A4\x04z"}, Spelling{"joined", "a\\\nb", "ab"},
                    Spelling{"joined_in_quotes", "\"a\\\nb\"", "ab"}, Spelling{"lines", "\"a\nb\"", "a\nb"},
                    Spelling{"hash_in_quotes", "'#a'", "#a"}, Spelling{"bytes", "\xff\xc3", "\xff\xc3"}),
    [](const testing::TestParamInfo<Spelling> &spelling) { return std::string(spelling.param.name); });

TEST_F(Secrets, CommentsAndContinuationsBelongToTheirEntry)
{
    file("joe \\\n isp \\\n 4 * # don't\nx#y isp 5\n#joe isp 6\nq isp#7\n");
    EXPECT_EQ(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ("x#y isp 5\n#joe isp 6\nq isp#7\n", now());
    EXPECT_EQ(0, cslib_entry_del("q", "isp"));
    EXPECT_NE(0, cslib_entry_del("x", "isp"));
    EXPECT_EQ("x#y isp 5\n#joe isp 6\n", now());
}

TEST_F(Secrets, AppendedEntryIsALineOfItsOwn)
{
    for (const char *end : {"\\", "\\\n", "", " ", "# c", "\\\\"}) {
        const std::string before = "a isp 1 *" + std::string(end);
        file(before);
        EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*")) << end;
        EXPECT_EQ(0u, now().find(before)) << end;
        EXPECT_EQ(0, cslib_entry_del("joe", "isp")) << end;
        EXPECT_EQ(0, cslib_entry_del("a", "isp")) << end;
    }
}

// pppd reads such a word without the backslash, so the pair's entry is this one.
TEST_F(Secrets, ABackslashAtTheEndOfTheFileMeansNothing)
{
    for (const char *end : {"joe isp\\", "joe isp \\", "joe isp 1\\"}) {
        file("a isp 1 *\n" + std::string(end));
        EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*")) << end;
        EXPECT_EQ("a isp 1 *\njoe isp pw *\n", now()) << end;
        file("a isp 1 *\n" + std::string(end));
        EXPECT_EQ(0, cslib_entry_del("joe", "isp")) << end;
        EXPECT_EQ("a isp 1 *\n", now()) << end;
    }
    file("joe \\");
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_del("joe", "")) << "one word is no pair";
}

TEST_F(Secrets, QuoteThatNeverEndsHidesWhatFollows)
{
    const std::string before = "a isp 1 *\nb \"isp 2 *\njoe isp 3 *\n";
    file(before);
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ(EBADMSG, errno);
    EXPECT_NE(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ(before, now());
    EXPECT_EQ(0, cslib_entry_add("a", "isp", "new", "*"));
    EXPECT_EQ("a isp new *\nb \"isp 2 *\njoe isp 3 *\n", now());
}

TEST_F(Secrets, AnyPrintableWordIsWrittenSoThatItReadsBack)
{
    const char *odd[] = {"a b", "a\"b",   "a\\b",         "a'b", "#a", "a#b", "\t", "%s%n", "-",
                         "!",   "$x;`y`", "\xc3\xa4\xff", "\\",  "\"", "''",  " ",  "x\\"};
    for (const char *word : odd) {
        file("other isp pw *\n");
        ASSERT_EQ(0, cslib_entry_add(word, word, word, word)) << word;
        std::string first = now();
        ASSERT_EQ(0, cslib_entry_add(word, word, word, word)) << word;
        EXPECT_EQ(first, now()) << word;
        ASSERT_EQ(0, cslib_entry_del(word, word)) << word;
        EXPECT_EQ("other isp pw *\n", now()) << word;
    }
    file("");
    EXPECT_EQ(0, cslib_entry_add("a b", "i\"s\\p", "#p w", "10.0.0.1 10.0.0.2"));
    EXPECT_EQ("\"a b\" \"i\\\"s\\\\p\" \"#p w\" \"10.0.0.1 10.0.0.2\"\n", now());
}

TEST_F(Secrets, EmptyPasswordIsAWordAndEmptyAddressIsNone)
{
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "", "10.0.0.2"));
    EXPECT_EQ("joe isp \"\" 10.0.0.2\n", now());
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", ""));
    EXPECT_EQ("joe isp pw\n", now());
}

TEST_F(Secrets, WhatPppdCannotReadBackIsRefused)
{
    file("a b c *\n");
    StderrCapture err;
    const std::string long_word(1024, 'x');
    for (const char *bad : {"a\nb", "a\rb", "\x01", "\x7f", long_word.c_str()}) {
        EXPECT_NE(0, cslib_entry_add(bad, "isp", "pw", "*"));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_NE(0, cslib_entry_add("joe", bad, "pw", "*"));
        EXPECT_NE(0, cslib_entry_add("joe", "isp", bad, "*"));
        EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", bad));
    }
    // What follows the sign would be taken as the name of a file with the password.
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "@/etc/shadow", "*"));
    EXPECT_NE(0, cslib_entry_add("", "isp", "pw", "*"));
    EXPECT_NE(0, cslib_entry_add("joe", "", "pw", "*"));
    EXPECT_EQ("a b c *\n", now());
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", std::string(1023, 'x').c_str(), "*"));
}

TEST_F(Secrets, NullArgumentsAreErrors)
{
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_add(nullptr, "isp", "pw", "*"));
    EXPECT_NE(0, cslib_entry_add("joe", nullptr, "pw", "*"));
    EXPECT_NE(0, cslib_entry_add("joe", "isp", nullptr, "*"));
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", nullptr));
    EXPECT_NE(0, cslib_entry_del(nullptr, "isp"));
    EXPECT_NE(0, cslib_entry_del("joe", nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(Secrets, PasswordIsNeverPrinted)
{
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "top\nsecret", "*"));
    interpose::fail("rename", EIO);
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "topsecret", "*"));
    EXPECT_EQ("debug: cslib_entry_add(joe, isp, *): Invalid argument\n"
              "debug: cslib_entry_add(joe, isp, *): Input/output error\n",
              err.text());
}

TEST_F(Secrets, MissingFolderIsAnError)
{
    std::filesystem::remove("/etc/ppp");
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Secrets, FullDiskKeepsTheOldFile)
{
    ASSERT_EQ(0, mount("tmpfs", "/etc/ppp", "tmpfs", 0, "size=8k"));
    const std::string before = "# " + std::string(4000, 'x') + "\n";
    file(before);
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_add("joe", "isp", std::string(1000, 'p').c_str(), "*"));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(before, now());
    EXPECT_FALSE(file_exists("/etc/ppp/.chap-secrets.new"));
}

TEST_F(Secrets, FailingStepsKeepTheOldFileAndLeaveNothing)
{
    file("a b c *\nd e f *\n");
    StderrCapture err;
    for (const char *call : {"rename", "write", "fsync", "fchmod", "flock"}) {
        interpose::fail(call, EIO);
        EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", "*")) << call;
        EXPECT_EQ(EIO, errno) << call;
        EXPECT_EQ("a b c *\nd e f *\n", now()) << call;
        EXPECT_FALSE(file_exists("/etc/ppp/.chap-secrets.new")) << call;
        interpose::fail(call, EIO);
        EXPECT_NE(0, cslib_entry_del("a", "b")) << call;
        EXPECT_EQ("a b c *\nd e f *\n", now()) << call;
        interpose::fail(call, 0, 0);
    }
}

TEST_F(Secrets, InterruptedCallsAreRepeated)
{
    for (const char *call : {"write", "fsync", "flock"}) {
        interpose::fail(call, EINTR, 3);
        EXPECT_EQ(0, cslib_entry_add("joe", "isp", call, "*")) << call;
        EXPECT_GE(interpose::calls(call), 4);
        EXPECT_EQ("joe isp " + std::string(call) + " *\n", now());
    }
}

TEST_F(Secrets, LeftoverOfAKilledWriterIsOverwritten)
{
    file("a b c *\n");
    write_file("/etc/ppp/.chap-secrets.new", "rubbish", 0666);
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ("a b c *\njoe isp pw *\n", now());
    EXPECT_EQ(0600u, mode());
    EXPECT_FALSE(file_exists("/etc/ppp/.chap-secrets.new"));
}

TEST_F(Secrets, LinkIsFollowedAndStays)
{
    write_file("/tmp/real/secrets", "a b c *\n", 0600);
    std::filesystem::create_symlink("/tmp/real/secrets", secrets);
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_TRUE(std::filesystem::is_symlink(secrets));
    EXPECT_EQ("a b c *\njoe isp pw *\n", read_file("/tmp/real/secrets"));
}

TEST_F(Secrets, LinksThatLeadNowhereAndLinksForTheNewFile)
{
    StderrCapture err;
    std::filesystem::create_symlink("/tmp/nowhere", secrets);
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_FALSE(file_exists("/tmp/nowhere"));
    unlink(secrets);
    write_file("/tmp/target", "keep");
    std::filesystem::create_symlink("/tmp/target", "/etc/ppp/.chap-secrets.new");
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ("keep", read_file("/tmp/target"));
    EXPECT_FALSE(std::filesystem::is_symlink(secrets));
    write_file("/tmp/target", "keep");
    unlink("/var/run/ivarode/chap-secrets.lock");
    std::filesystem::create_symlink("/tmp/target", "/var/run/ivarode/chap-secrets.lock");
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw2", "*"));
    EXPECT_EQ(ELOOP, errno);
}

TEST_F(Secrets, LongLinesAndZeroBytesPassThrough)
{
    const std::string odd = std::string(200000, 'l') + " isp pw *\n" + std::string("z\0z isp pw *\n", 13) +
                            std::string(70000, ' ') + "\n";
    file(odd);
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ(odd + "joe isp pw *\n", now());
    EXPECT_EQ(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ(odd, now());
}

TEST_F(Secrets, AnyFileIsLeftAsItWas)
{
    const std::string_view pieces[] = {
        "a",    "isp", " ", "\t", "\n", "\\", "'", "\"", "#", "\\x", "\\1", "*", std::string_view("\0", 1),
        "\xff", "\r"};
    std::mt19937 random(4711);
    std::uniform_int_distribution<size_t> piece(0, std::size(pieces) - 1);
    StderrCapture err;
    int added = 0;
    for (int round = 0; round < 1500; round++) {
        std::string before;
        for (int i = 0; i < round % 30; i++) {
            before += pieces[piece(random)];
        }
        file(before);
        if (cslib_entry_add("joe", "isp", "pw", "*") != 0) {
            ASSERT_EQ(EBADMSG, errno);
            ASSERT_EQ(before, now());
            continue;
        }
        added++;
        ASSERT_EQ(0, cslib_entry_del("joe", "isp")) << before;
        std::string after = now();
        ASSERT_EQ(before, after.substr(0, before.size()));
        ASSERT_EQ(std::string::npos, after.find_first_not_of('\n', before.size())) << before;
    }
    EXPECT_GT(added, 500);
    EXPECT_LT(added, 1500);
}

TEST_F(Secrets, FileThatIsNoFile)
{
    std::filesystem::create_directory(secrets);
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_add("joe", "isp", "pw", "*"));
    EXPECT_EQ(EISDIR, errno);
}

TEST_F(Secrets, WriterThatHangsDoesNotHoldUsForEver)
{
    EXPECT_EQ(0, cslib_entry_add("joe", "isp", "pw", "*"));
    int fd = open("/var/run/ivarode/chap-secrets.lock", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    StderrCapture err;
    EXPECT_NE(0, cslib_entry_del("joe", "isp"));
    EXPECT_EQ(ETIMEDOUT, errno);
    close(fd);
    EXPECT_EQ(0, cslib_entry_del("joe", "isp"));
}

TEST_F(Secrets, WritersAtTheSameTimeLoseNothing)
{
    constexpr int writers = 4;
    constexpr int entries = 25;
    for (int w = 0; w < writers; w++) {
        if (fork() == 0) {
            int failed = 0;
            for (int i = 0; i < entries; i++) {
                std::string user = "u" + std::to_string(w) + "_" + std::to_string(i);
                failed |= cslib_entry_add(user.c_str(), "isp", "pw", "*");
                if (i % 5 == 4) {
                    failed |= cslib_entry_del(user.c_str(), "isp");
                }
            }
            _exit(failed ? 1 : 0);
        }
    }
    for (int w = 0; w < writers; w++) {
        int state = 0;
        ASSERT_GT(wait(&state), 0);
        EXPECT_EQ(0, state);
    }
    std::string text = now();
    EXPECT_EQ(writers * entries * 4 / 5, std::count(text.begin(), text.end(), '\n'));
    EXPECT_EQ(std::string::npos, text.find("u0_4 "));
    EXPECT_NE(std::string::npos, text.find("u3_23 isp pw *\n"));
}

} // namespace
