// Files that nobody should write must give an error or a package, never more.
#include "fixture.h"

#include <random>

namespace {

class Hostile : public UciTest {};

TEST_F(Hostile, ZeroBytes)
{
    using namespace std::string_view_literals;
    EXPECT_EQ("Parse error (zero byte) at line 2, byte 10", parsed("config t n\noption a x\0y\n"sv));
    EXPECT_EQ("Parse error (zero byte) at line 2, byte 11", parsed("config t n\noption a 'x\0y'\n"sv));
    EXPECT_EQ("Parse error (zero byte) at line 2, byte 11", parsed("config t n\noption a \"x\0y\"\n"sv));
    EXPECT_EQ(UCI_ERR_PARSE, load("config t n\noption a x\\\0y\n"sv));
    EXPECT_EQ(UCI_ERR_PARSE, load("con\0fig t n\n"sv));
    EXPECT_EQ(UCI_ERR_PARSE, load("\0"sv));
    EXPECT_EQ(UCI_ERR_PARSE, load("config t\0 n\n"sv));
}

TEST_F(Hostile, LinesOf64KilobytesAndMore)
{
    for (size_t length : {65535, 65536, 65537, 1000000}) {
        std::string value(length, 'v');
        ASSERT_EQ(UCI_OK, load("config t n\n\toption a '" + value + "'\n\toption b " + value + "\n"));
        uci_section *n = uci_lookup_section(ctx, package, "n");
        EXPECT_EQ(value, uci_lookup_option_string(ctx, n, "a"));
        EXPECT_EQ(value, uci_lookup_option_string(ctx, n, "b"));
        EXPECT_EQ(UCI_ERR_PARSE, load(value));
        EXPECT_EQ(UCI_OK, load("config " + value + " " + value + "\noption " + value + " 1"));
    }
}

TEST_F(Hostile, EveryPrefixOfAFile)
{
    const std::string text =
        "package net\nconfig t 'n' # c\n\toption a \"q\\\"\\\n\"'s'b\\ c ; option d 'e'\n"
        "\tlist l x\\\ny\nconfig t\n\tlist l ''\n";
    for (size_t length = 0; length <= text.size(); length++) {
        int code = load(std::string_view(text).substr(0, length));
        EXPECT_TRUE(code == UCI_OK || code == UCI_ERR_PARSE) << length << ": " << code;
        EXPECT_EQ(code == UCI_OK, package != nullptr);
    }
}

TEST_F(Hostile, RandomTextOfTheGrammarsOwnPieces)
{
    const std::string_view pieces[] = {"config",
                                       "option",
                                       "list",
                                       "package",
                                       " ",
                                       "\n",
                                       "'",
                                       "\"",
                                       "\\",
                                       ";",
                                       "#",
                                       "\t",
                                       "a",
                                       "\r",
                                       "\xff",
                                       "n.a",
                                       "net.",
                                       "=",
                                       std::string_view("\0", 1),
                                       "+",
                                       "-",
                                       "@",
                                       "^",
                                       "|",
                                       "~"};
    std::mt19937 random(20240517);
    std::uniform_int_distribution<size_t> piece(0, std::size(pieces) - 1);
    int accepted = 0;
    testing::internal::CaptureStderr();
    for (int round = 0; round < 1500; round++) {
        std::string text = round % 2 ? "config t n\noption a 1\n" : "";
        std::string changes;
        for (int i = 0; i < round % 24; i++) {
            text += pieces[piece(random)];
            changes += pieces[piece(random)];
        }
        ctx->flags =
            static_cast<uci_flags>(round % 3 ? ctx->flags | UCI_FLAG_STRICT : ctx->flags & ~UCI_FLAG_STRICT);
        write("saved/net", changes);
        int code = load(text);
        ASSERT_TRUE(code == UCI_OK || code == UCI_ERR_PARSE) << text;
        if (code == UCI_OK) {
            accepted++;
            content();
        }
    }
    EXPECT_EQ(0u, testing::internal::GetCapturedStderr().find("Parse error ("));
    EXPECT_GT(accepted, 0);
    EXPECT_LT(accepted, 1500);
}

TEST_F(Hostile, HundredThousandSections)
{
    std::string text;
    for (int i = 0; i < 100000; i++) {
        text += "config rule\noption a 1\n";
    }
    ASSERT_EQ(UCI_OK, load(text));
    EXPECT_EQ(100000, package->n_section);
}

} // namespace
