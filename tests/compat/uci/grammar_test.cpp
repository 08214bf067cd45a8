#include "fixture.h"

namespace {

class Grammar : public UciTest {};

TEST_F(Grammar, SectionsOptionsAndListsInFileOrder)
{
    EXPECT_EQ("wan=interface\nwan.proto=dhcp\nwan.dns=[1.1.1.1|8.8.8.8]\nlan=interface\nlan.ip=10.0.0.1\n",
              parsed("config interface 'wan'\n\toption proto 'dhcp'\n\tlist dns '1.1.1.1'\n"
                     "\tlist dns '8.8.8.8'\n\nconfig interface 'lan'\n\toption ip '10.0.0.1'\n"));
}

TEST_F(Grammar, KeywordsMayBeTheirFirstLetter)
{
    EXPECT_EQ("n=t\nn.a=1\nn.l=[x]\n", parsed("p net\nc t n\no a 1\nl l x\n"));
    EXPECT_EQ("Parse error (invalid command) at line 1, byte 0", parsed("conf t n\n"));
    EXPECT_EQ("Parse error (invalid command) at line 1, byte 1", parsed(" Config t n\n"));
}

TEST_F(Grammar, PackageLineIsRead)
{
    EXPECT_EQ("n=t\n", parsed("package other\nconfig t n\npackage 'third'\n"));
    EXPECT_NE(UCI_OK, load("package\n"));
    EXPECT_NE(UCI_OK, load("package a b\n"));
}

TEST_F(Grammar, BlanksTabsAndCarriageReturnsSeparate)
{
    EXPECT_EQ("n=t\nn.a=1\n", parsed("  config\tt  \t n\t\r\n\r\n \t option   a\t1   \r\n"));
    EXPECT_EQ("n=t\nn.a=1\n", parsed("config t n\r\noption a 1\r"));
}

TEST_F(Grammar, MissingLastNewlineIsFine)
{
    EXPECT_EQ("n=t\nn.a=1\n", parsed("config t n\noption a 1"));
    EXPECT_EQ("n=t\nn.a=1\n", parsed("config t n\noption a '1'"));
    EXPECT_EQ("n=t\n", parsed("config t n"));
}

TEST_F(Grammar, QuotedAndBarePartsAreGlued)
{
    EXPECT_EQ("n=t\nn.a=foobarbazqux\n", parsed("config t n\noption a foo'bar'\"baz\"qux\n"));
    EXPECT_EQ("n=t\nn.a=it's\n", parsed("config t n\noption a 'it'\\''s'\n"));
    EXPECT_EQ("n=t\nn.a=onetwothree\n", parsed("config t n\noption a 'one'two\"three\"\n"));
    EXPECT_EQ("n=t\nn.a=one\nn.b=2\n", parsed("config t n\noption a \"\"'one''';option 'b' 2\n"));
}

TEST_F(Grammar, LinesWithinQuotesAreCounted)
{
    EXPECT_EQ("Parse error (too many arguments) at line 4, byte 21",
              parsed("config t n\noption a 'x\ny'\"\nz\" b\n"));
    EXPECT_EQ("Parse error (invalid command) at line 5, byte 0",
              parsed("config t n\noption a x\\\ny'\n'\nbad\n"));
}

TEST_F(Grammar, SingleQuotesKeepEverything)
{
    EXPECT_EQ("n=t\nn.a=a\\n\"#;\nb  c\n", parsed("config t n\noption a 'a\\n\"#;\nb  c'\n"));
}

TEST_F(Grammar, DoubleQuotesTakeTheCharacterAfterABackslash)
{
    EXPECT_EQ("n=t\nn.a=a\"b\\cnd\n", parsed("config t n\noption a \"a\\\"b\\\\c\\nd\"\n"));
    EXPECT_EQ("n=t\nn.a=one\ntwo '#;\n", parsed("config t n\noption a \"one\ntwo '#;\"\n"));
}

TEST_F(Grammar, BareBackslashTakesTheNextCharacter)
{
    EXPECT_EQ("n=t\nn.a=a b#c;d'e\n", parsed("config t n\noption a a\\ b\\#c\\;d\\'e\n"));
}

TEST_F(Grammar, BackslashNewlineJoinsLines)
{
    EXPECT_EQ("n=t\nn.a=onetwo\n", parsed("config t n\noption a one\\\ntwo\n"));
    EXPECT_EQ("n=t\nn.a=onetwo\n", parsed("config t n\noption a \"one\\\ntwo\"\n"));
    EXPECT_EQ("n=t\nn.a=one\\\ntwo\n", parsed("config t n\noption a 'one\\\ntwo'\n"));
    EXPECT_EQ("n=t\nn.a=1\n", parsed("config t \\\nn\noption a \\\n1\n"));
    EXPECT_EQ("n=t\nn.a=one\n", parsed("config t n\noption a one\\\n"));
    // The word has begun before, and the blank ends it.
    EXPECT_EQ("Parse error (too many arguments) at line 2, byte 14", parsed("config t \\\n n\n"));
}

TEST_F(Grammar, CommentsBeginOutsideOfQuotes)
{
    EXPECT_EQ(
        "n=t\nn.a=1\nn.b=x\nn.c=#x\n",
        parsed("# top\n#\nconfig t n # after\n  # indented\noption a 1#23\noption b 'x'#y\noption c '#x'\n"));
}

TEST_F(Grammar, CommentsMayHoldAnything)
{
    EXPECT_EQ("n=t\n", parsed(std::string_view("config t n\n# don't \" \\ \0 ;option a 1\n", 36)));
}

TEST_F(Grammar, SemicolonSeparatesCommandsBehindABlankOrAQuote)
{
    EXPECT_EQ("n=t\nn.a=1\nn.b=2\n", parsed("config t 'n'; option a '1' ;\toption b 2"));
    EXPECT_EQ("n=t\nn.a=1\n", parsed("config t n\noption a '1'; # option b 2\n"));
    EXPECT_EQ("Parse error (invalid command) at line 1, byte 13", parsed("config t n ; option;x\n"));
    EXPECT_EQ("n=t\nn.a=;\n", parsed("config t n\noption a ';'\n"));
}

TEST_F(Grammar, SemicolonBehindABareWordHidesTheRestOfTheLine)
{
    EXPECT_EQ("n=t\nn.a=1\nn.b=2\n", parsed("config t n; what ever\noption a 1;option c 3\noption b 2\n"));
    EXPECT_EQ("n=t\nn.a=1\n", parsed("config t n\noption a; 5\noption a 1\n"));
}

TEST_F(Grammar, SemicolonIsNoCommand)
{
    EXPECT_EQ("Parse error (invalid command) at line 1, byte 0", parsed(";config t 'n'\n"));
    // Nor is what a line ends with.
    EXPECT_EQ("Parse error (invalid command) at line 1, byte 13", parsed("config t 'n';\n"));
}

TEST_F(Grammar, SectionTypesArePrintable)
{
    EXPECT_EQ("n=a-b!.{~\n", parsed("config a-b!.{~ n\n"));
    EXPECT_EQ("Parse error (invalid character in type field) at line 1, byte 13", parsed("config 'a b'\n"));
    EXPECT_EQ("Parse error (invalid character in type field) at line 1, byte 10",
              parsed("config \xc3\xa4 n\n"));
    EXPECT_EQ("Parse error (insufficient arguments) at line 1, byte 10", parsed("config ''\n"));
}

TEST_F(Grammar, NamesAreLettersDigitsAndUnderscores)
{
    EXPECT_EQ("0_Az=t\n0_Az.9=1\n", parsed("config t 0_Az\noption 9 1\n"));
    for (const char *bad : {"a-b", "a.b", "a b", "\xc3\xa4", "@t[0]"}) {
        EXPECT_EQ(UCI_ERR_PARSE, load(std::string("config t '") + bad + "'\n")) << bad;
        EXPECT_EQ(UCI_ERR_PARSE, load(std::string("config t n\noption '") + bad + "' 1\n")) << bad;
        EXPECT_EQ(UCI_ERR_PARSE, load(std::string("config t n\nlist '") + bad + "' 1\n")) << bad;
    }
    EXPECT_EQ(UCI_ERR_PARSE, load("config t n\noption '' 1\n"));
}

TEST_F(Grammar, TheLastLineHasNoNumberOfItsOwnWithoutANewline)
{
    EXPECT_EQ("Parse error (insufficient arguments) at line 1, byte 6", parsed("config t n\noption"));
    EXPECT_EQ("Parse error (insufficient arguments) at line 0, byte 7", parsed("config "));
}

TEST_F(Grammar, UnterminatedQuotes)
{
    EXPECT_EQ("Parse error (EOF with unterminated ') at line 3, byte 14",
              parsed("config t n\noption a 'x\ny\n"));
    EXPECT_EQ("Parse error (EOF with unterminated \") at line 1, byte 11",
              parsed("config t n\noption a \"x"));
    EXPECT_EQ(UCI_ERR_PARSE, load("config t n\noption a \"x\\"));
    EXPECT_EQ(UCI_ERR_PARSE, load("config t n\noption a \"x\\\""));
}

TEST_F(Grammar, EmptyFileIsAnEmptyPackage)
{
    for (const char *text : {"", "\n\n", "# only a comment", "   \t"}) {
        EXPECT_EQ("", parsed(text)) << text;
        ASSERT_NE(nullptr, package);
        EXPECT_STREQ("net", package->e.name);
        EXPECT_EQ(UCI_TYPE_PACKAGE, package->e.type);
    }
}

TEST_F(Grammar, SameSectionTwiceIsMerged)
{
    EXPECT_EQ("n=t\nn.a=9\nn.b=2\nn.c=3\nm=t\n",
              parsed("config t n\noption a 1\noption b 2\nconfig t m\nconfig t n\noption c 3\noption a 9\n"));
    EXPECT_EQ(
        "Parse error (section of different type overwrites prior section with same name) at line 2, byte 11",
        parsed("config t n\nconfig u n\n"));
}

TEST_F(Grammar, EachOfManySectionsIsFoundAgain)
{
    std::string file;
    std::string expected;
    for (const char *option : {"first", "second"}) {
        for (int i = 0; i < 500; i++) {
            file += "config t n" + std::to_string(i) + "\noption " + option + ' ' + std::to_string(i) + '\n';
        }
    }
    for (int i = 0; i < 500; i++) {
        const std::string name = "n" + std::to_string(i);
        const std::string value = "=" + std::to_string(i) + "\n";
        expected.append(name).append("=t\n");
        expected.append(name).append(".first").append(value);
        expected.append(name).append(".second").append(value);
    }
    EXPECT_EQ(expected, parsed(file));
}

TEST_F(Grammar, ANameThatWasGeneratedBeforeIsThatSection)
{
    const std::string shown = parsed("config t\n"); // "*NAME=t"
    const std::string generated = shown.substr(1, shown.find('=') - 1);
    EXPECT_EQ("*" + generated + "=t\n*" + generated + ".a=1\n",
              parsed("config t\nconfig t " + generated + "\noption a 1\n"));
}

TEST_F(Grammar, LastValueWinsInTheFirstPlace)
{
    EXPECT_EQ("n=t\nn.a=3\nn.b=2\n", parsed("config t n\noption a 1\noption b 2\noption a 3\n"));
}

TEST_F(Grammar, StringsAndListsReplaceOrJoin)
{
    EXPECT_EQ("n=t\nn.s2l=[x|y]\nn.l2s=c\n", parsed("config t n\noption s2l x\nlist s2l y\n"
                                                    "list l2s a\nlist l2s b\noption l2s c\n"));
}

TEST_F(Grammar, EmptyValueIsNoOptionButAListItem)
{
    EXPECT_EQ("n=t\nn.c=1\n",
              parsed("config t n\noption a ''\noption b\noption c 1\noption c ''\noption c\n"));
    EXPECT_EQ("n=t\nn.a=[]\nn.b=[|x]\n", parsed("config t n\nlist a ''\nlist b ''\nlist b x\n"));
}

TEST_F(Grammar, GeneratedNames)
{
    EXPECT_EQ(
        "*cfg0192bd=rule\nn=t\n*cfg0392bd=rule\n*cfg04c8b4=route\n*cfg056d96=interface\n*cfg060f15=device\n"
        "*cfg072e84=user\n*cfg08769c=server\n*cfg093b09=globals\n*cfg0ab606=a\n",
        parsed("config rule\nconfig t n\nconfig rule\nconfig route\nconfig interface\nconfig device\n"
               "config user\nconfig server\nconfig globals\nconfig a\n"));
    EXPECT_EQ("*cfg0192bd=rule\n", parsed("config rule ''\n"));
}

TEST_F(Grammar, GeneratedNamesPastTwoDigits)
{
    std::string text;
    for (int i = 0; i < 256; i++) {
        text += "config rule\n";
    }
    ASSERT_EQ(UCI_OK, load(text));
    EXPECT_EQ(256, package->n_section);
    EXPECT_NE(nullptr, uci_lookup_section(ctx, package, "cfgff92bd"));
    EXPECT_NE(nullptr, uci_lookup_section(ctx, package, "cfg10092bd"));
}

TEST_F(Grammar, WithoutStrictnessBadLinesAreSkippedAndTold)
{
    ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_STRICT);
    testing::internal::CaptureStderr();
    EXPECT_EQ("n=t\nn.a=1\nn.b=2\nm=t\n",
              parsed("option early 1\nbad\nconfig t n\noption a 1\nnonsense 'x' y\noption b 2\n"
                     "config t-x n-o\noption lost 1\nconfig t m\noption a 'open"));
    EXPECT_EQ("Parse error (option/list command found before the first section) at line 1, byte 0\n"
              "Parse error (invalid command) at line 2, byte 0\n"
              "Parse error (invalid command) at line 5, byte 0\n"
              "Parse error (invalid character in name field) at line 7, byte 15\n"
              "Parse error (option/list command found before the first section) at line 8, byte 0\n"
              "Parse error (EOF with unterminated ') at line 9, byte 14\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(Grammar, WithoutStrictnessWordsTooManyAndOtherTypesAreTaken)
{
    ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_STRICT);
    EXPECT_EQ("n=u\nn.a=1\nn.b=2\n", parsed("config t n o\noption a 1 2\nconfig u n\noption b 2\n"));
    testing::internal::CaptureStderr();
    EXPECT_EQ("n=t\n", parsed("config t n o option"));
    EXPECT_EQ("Parse error (insufficient arguments) at line 0, byte 19\n",
              testing::internal::GetCapturedStderr());
}

} // namespace
