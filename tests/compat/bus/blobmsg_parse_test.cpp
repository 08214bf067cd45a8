// Reading messages, sound and unsound.
#include "support.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include <cerrno>

using support::Bytes;
using support::from_hex;

namespace {

blob_attr *attr(Bytes &bytes)
{
    return reinterpret_cast<blob_attr *>(bytes.data());
}

class Parse : public ::testing::Test {
protected:
    Parse() { blob_buf_init(&b, 0); }
    ~Parse() override { blob_buf_free(&b); }
    int parse(const blobmsg_policy *policy, int count)
    {
        return blobmsg_parse(policy, count, tb, blobmsg_data(b.head),
                             static_cast<unsigned int>(blobmsg_len(b.head)));
    }
    blob_buf b = {};
    blob_attr *tb[8] = {};
};

TEST_F(Parse, EmptyMessageFailsWithAClearedTable)
{
    const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT32}};
    tb[0] = b.head;
    EXPECT_EQ(parse(policy, 1), -EINVAL);
    EXPECT_EQ(tb[0], nullptr);
    tb[0] = b.head;
    EXPECT_EQ(blobmsg_parse(policy, 1, tb, nullptr, 10), -EINVAL);
    EXPECT_EQ(tb[0], nullptr);
}

TEST_F(Parse, FirstOfSeveralWinsAndWrongTypesAreAbsent)
{
    const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT32},
                                     {"a", BLOBMSG_TYPE_UNSPEC},
                                     {"a", BLOBMSG_CAST_INT64},
                                     {nullptr, BLOBMSG_TYPE_INT32},
                                     {"c", BLOBMSG_TYPE_STRING}};
    blobmsg_add_string(&b, "a", "text");
    blobmsg_add_u16(&b, "a", 7);
    blobmsg_add_u32(&b, "a", 8);
    blobmsg_add_u32(&b, "a", 9);
    blobmsg_add_u32(&b, "aa", 10);
    EXPECT_EQ(parse(policy, 5), 0);
    ASSERT_NE(tb[0], nullptr);
    EXPECT_EQ(blobmsg_get_u32(tb[0]), 8u);
    ASSERT_NE(tb[1], nullptr);
    EXPECT_STREQ(blobmsg_get_string(tb[1]), "text");
    ASSERT_NE(tb[2], nullptr);
    EXPECT_EQ(blobmsg_cast_u64(tb[2]), 7u);
    EXPECT_EQ(tb[3], nullptr);
    EXPECT_EQ(tb[4], nullptr);
}

TEST_F(Parse, UnsoundMemberEndsItButKeepsWhatCameBefore)
{
    const blobmsg_policy policy[] = {
        {"a", BLOBMSG_TYPE_INT32}, {"b", BLOBMSG_TYPE_STRING}, {"c", BLOBMSG_TYPE_INT32}};
    blobmsg_add_u32(&b, "a", 1);
    blobmsg_add_field(&b, BLOBMSG_TYPE_STRING, "b", "no end", 6);
    blobmsg_add_u32(&b, "c", 3);
    EXPECT_EQ(parse(policy, 3), -1);
    EXPECT_NE(tb[0], nullptr);
    EXPECT_EQ(tb[1], nullptr);
    EXPECT_EQ(tb[2], nullptr);
}

TEST_F(Parse, PlainAttributesAreSkipped)
{
    const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT32}};
    blob_put_u32(&b, 5, 77);
    blobmsg_add_u32(&b, "a", 1);
    EXPECT_EQ(parse(policy, 1), 0);
    EXPECT_NE(tb[0], nullptr);
}

TEST_F(Parse, ArraysByPosition)
{
    const blobmsg_policy policy[] = {
        {nullptr, BLOBMSG_TYPE_INT32}, {nullptr, BLOBMSG_TYPE_STRING}, {nullptr, BLOBMSG_TYPE_UNSPEC}};
    ASSERT_TRUE(blobmsg_add_json_from_string(&b, R"({"l":["skip",1,2,"s",true]})"));
    auto *list = static_cast<blob_attr *>(blob_data(b.head));
    EXPECT_EQ(blobmsg_parse_array_attr(policy, 3, tb, list), 0);
    EXPECT_EQ(blobmsg_get_u32(tb[0]), 1u);
    EXPECT_STREQ(blobmsg_get_string(tb[1]), "s");
    EXPECT_TRUE(blobmsg_get_bool(tb[2]));
    EXPECT_EQ(blobmsg_parse_array(policy, 3, tb, nullptr, 0), -EINVAL);
}

TEST_F(Parse, IntegersWidenBySign)
{
    blobmsg_add_u16(&b, "x", 0xffff);
    auto *value = static_cast<blob_attr *>(blob_data(b.head));
    EXPECT_EQ(blobmsg_cast_u64(value), 65535u);
    EXPECT_EQ(blobmsg_cast_s64(value), -1);
}

TEST_F(Parse, NullIsHarmlessWhereCallersRelyOnIt)
{
    EXPECT_EQ(blobmsg_get_string(nullptr), nullptr);
    EXPECT_EQ(blobmsg_data(nullptr), nullptr);
    EXPECT_EQ(blobmsg_len(nullptr), 0u);
}

TEST_F(Parse, ClearedNameKeepsItsLength)
{
    blobmsg_add_u8(&b, "name", 1);
    auto *value = static_cast<blob_attr *>(blob_data(b.head));
    blobmsg_clear_name(value);
    EXPECT_STREQ(blobmsg_name(value), "");
    EXPECT_TRUE(blobmsg_get_bool(value));
}

TEST(CheckAttr, HeaderRules)
{
    Bytes good = from_hex("8500000c 00016e00 00000007");
    EXPECT_TRUE(blobmsg_check_attr(attr(good), true));
    EXPECT_FALSE(blobmsg_check_attr_len(attr(good), true, 11));
    Bytes unnamed = from_hex("8500000c 00000000 00000007");
    EXPECT_TRUE(blobmsg_check_attr(attr(unnamed), false));
    EXPECT_FALSE(blobmsg_check_attr(attr(unnamed), true));
    Bytes plain = from_hex("05000008 00000007");
    EXPECT_TRUE(blobmsg_check_attr(attr(plain), false));
    EXPECT_FALSE(blobmsg_check_attr(attr(plain), true));
    Bytes no_end = from_hex("8500000c 00016e41 00000007");
    EXPECT_FALSE(blobmsg_check_attr(attr(no_end), true));
    Bytes long_name = from_hex("8500000c 00ff6e00 00000007");
    EXPECT_FALSE(blobmsg_check_attr(attr(long_name), true));
    Bytes longest_name = from_hex("8500000c ffff6e00 00000007");
    EXPECT_FALSE(blobmsg_check_attr(attr(longest_name), true));
    Bytes bad_type = from_hex("8900000c 00016e00 00000007");
    EXPECT_FALSE(blobmsg_check_attr(attr(bad_type), true));
    Bytes no_room = from_hex("85000004");
    EXPECT_FALSE(blobmsg_check_attr(attr(no_room), false));
    Bytes lying = from_hex("85000003 00000000");
    EXPECT_FALSE(blobmsg_check_attr_len(attr(lying), false, 8));
    Bytes wrong_size = from_hex("8500000a 00016e00 00070000");
    EXPECT_FALSE(blobmsg_check_attr(attr(wrong_size), true));
}

TEST(CheckArray, MembersMustBeAlikeAndTablesNamed)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    ASSERT_TRUE(blobmsg_add_json_from_string(&b, R"({"t":["a","b"],"m":["a",1],"e":[],"o":{"x":1}})"));
    const blobmsg_policy policy[] = {{"t", BLOBMSG_TYPE_ARRAY},
                                     {"m", BLOBMSG_TYPE_ARRAY},
                                     {"e", BLOBMSG_TYPE_ARRAY},
                                     {"o", BLOBMSG_TYPE_TABLE}};
    blob_attr *tb[4];
    blobmsg_parse_attr(policy, 4, tb, b.head);
    EXPECT_EQ(blobmsg_check_array(tb[0], BLOBMSG_TYPE_STRING), 2);
    EXPECT_EQ(blobmsg_check_array(tb[1], BLOBMSG_TYPE_STRING), -1);
    EXPECT_EQ(blobmsg_check_array(tb[1], BLOBMSG_TYPE_UNSPEC), 2);
    EXPECT_EQ(blobmsg_check_array(tb[2], BLOBMSG_TYPE_STRING), 0);
    EXPECT_EQ(blobmsg_check_array(tb[3], BLOBMSG_TYPE_INT32), 1);
    EXPECT_TRUE(blobmsg_check_attr_list(tb[0], BLOBMSG_TYPE_STRING));
    blob_buf_init(&b, 0);
    void *table = blobmsg_open_table(&b, "t");
    blobmsg_add_u8(&b, nullptr, 1);
    blobmsg_close_table(&b, table);
    EXPECT_EQ(blobmsg_check_array(static_cast<blob_attr *>(blob_data(b.head)), BLOBMSG_TYPE_UNSPEC), -1);
    EXPECT_EQ(blobmsg_check_array(b.head, BLOBMSG_TYPE_UNSPEC), -1);
    blob_buf_free(&b);
}

} // namespace
