#include "platform/output.h"
#include "platform/safestr.h"
#include "sandbox.h"

#include <cstring>

namespace {

class Strings : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (!IsSkipped()) {
            ASSERT_EQ(0, libsys_dbg_init());
        }
    }
    // What the tool says about null pointers.
    static std::string records()
    {
        std::string shown = run_program({program_folder() + "/ivarodectl", "debug"}).out;
        size_t start = shown.find("null pointers");
        return start == std::string::npos ? shown : shown.substr(start);
    }
    static constexpr const char *none = "null pointers to string operations  0\n";
};

TEST_F(Strings, CopyIsStrncpy)
{
    char text[8];
    memset(text, 'x', sizeof text);
    EXPECT_EQ(text, strncpy_safe_record(text, "abc", 6, "f", 1));
    EXPECT_EQ(0, memcmp(text, "abc\0\0\0xx", 8));
    EXPECT_EQ(text, strncpy_safe_record(text, "0123456789", 4, "f", 1));
    EXPECT_EQ(0, memcmp(text, "0123\0\0xx", 8));
    EXPECT_EQ(text, strncpy_safe_record(text, "zzz", 0, "f", 1));
    EXPECT_EQ('0', text[0]);
    EXPECT_EQ(none, records());
}

TEST_F(Strings, CompareIsStrncmp)
{
    EXPECT_EQ(0, strncmp_safe_record("abc", "abd", 2, "f", 1));
    EXPECT_LT(strncmp_safe_record("abc", "abd", 3, "f", 1), 0);
    EXPECT_GT(strncmp_safe_record("b", "a", 32, "f", 1), 0);
    EXPECT_EQ(0, strncmp_safe_record("a", "b", 0, "f", 1));
    EXPECT_EQ(none, records());
}

TEST_F(Strings, MemoryCopyStaysInItsDestination)
{
    char text[8] = ".......";
    EXPECT_EQ(text, memcpy_safe_record(text, 4, "0123456", 7, "f", 1));
    EXPECT_STREQ("0123...", text);
    EXPECT_EQ(text, memcpy_safe_record(text, 8, "ab", 2, "f", 1));
    EXPECT_STREQ("ab23...", text);
    EXPECT_EQ(text, memcpy_safe_record(text, 0, "zz", 2, "f", 1));
    EXPECT_STREQ("ab23...", text);
}

TEST_F(Strings, NullPointersAreRecordedByFunctionAndLine)
{
    StderrCapture err;
    char text[4] = "xyz";
    EXPECT_EQ(nullptr, strncpy_safe_record(nullptr, "a", 2, "copy_to_null", 11));
    EXPECT_EQ(text, strncpy_safe_record(text, nullptr, 3, "copy_from_null", 12));
    EXPECT_STREQ("", text);
    EXPECT_EQ(0, strncmp_safe_record(nullptr, nullptr, 3, "compare", 13));
    EXPECT_LT(strncmp_safe_record(nullptr, "a", 3, "compare", 13), 0);
    EXPECT_GT(strncmp_safe_record("a", nullptr, 3, "compare", 14), 0);
    EXPECT_EQ(nullptr, memcpy_safe_record(nullptr, 4, "a", 1, "memory", 15));
    EXPECT_EQ(text, memcpy_safe_record(text, 4, nullptr, 1, nullptr, 16));
    EXPECT_EQ("null pointers to string operations  7\n"
              "           1  copy_to_null:11\n"
              "           1  copy_from_null:12\n"
              "           2  compare:13\n"
              "           1  compare:14\n"
              "           1  memory:15\n"
              "           1  (null):16\n",
              records());
    EXPECT_NE(std::string::npos, err.text().find("debug: strncpy: null pointer from copy_to_null:11\n"));
}

TEST_F(Strings, MorePlacesThanRecordsAreCountedTogether)
{
    StderrCapture err;
    for (int line = 0; line < 70; line++) {
        strncmp_safe_record(nullptr, "", 1, "a_function_with_a_name_that_is_longer_than_a_record", line);
    }
    std::string shown = records();
    EXPECT_EQ(0u, shown.find("null pointers to string operations  70\n"));
    EXPECT_NE(std::string::npos, shown.find("           1  a_function_with_a_name_that_is_longer_t:63\n"));
    EXPECT_EQ(std::string::npos, shown.find(":64\n"));
    EXPECT_NE(std::string::npos, shown.find("           6  elsewhere\n"));
}

TEST(StringsWithoutRecords, NullPointersDoNoHarm)
{
    StderrCapture err;
    char text[2] = "a";
    EXPECT_EQ(text, strncpy_safe_record(text, nullptr, 2, "f", 1));
    EXPECT_STREQ("", text);
    EXPECT_EQ(text, strncpy_safe_record(text, nullptr, 0, "f", 1));
    EXPECT_EQ(nullptr, strncpy_safe_record(nullptr, nullptr, 2, "f", 1));
    EXPECT_EQ("debug: strncpy: null pointer from f:1\n", err.text().substr(0, 38));
}

} // namespace
