// Buffers and plain attributes.
#include "support.h"

extern "C" {
#include <libubox/blobmsg.h>
}

#include <cerrno>

using support::from_hex;

namespace {

class BlobBuf : public ::testing::Test {
protected:
    BlobBuf() { blob_buf_init(&b, 0); }
    ~BlobBuf() override { blob_buf_free(&b); }
    blob_buf b = {};
};

TEST_F(BlobBuf, GrowsInSteps)
{
    std::vector<int> sizes = {b.buflen};
    for (int i = 0; i < 80; i++) {
        ASSERT_EQ(blobmsg_add_u32(&b, "x", 0), 0);
        if (b.buflen != sizes.back()) {
            sizes.push_back(b.buflen);
        }
    }
    EXPECT_EQ(sizes, (std::vector<int>{256, 512, 768, 1024}));
}

TEST_F(BlobBuf, RefusesWhatTheLengthCannotExpress)
{
    const std::string big(20 << 20, 'x');
    EXPECT_EQ(blobmsg_add_string(&b, "s", big.c_str()), -1);
    EXPECT_EQ(blob_raw_len(b.head), 4u);
    const std::string fits(15 << 20, 'x');
    EXPECT_EQ(blobmsg_add_string(&b, "s", fits.c_str()), 0);
    const size_t len = blob_raw_len(b.head);
    EXPECT_EQ(blobmsg_add_string(&b, "t", std::string(1 << 20, 'y').c_str()), -1);
    EXPECT_EQ(blob_raw_len(b.head), len);
    EXPECT_EQ(blobmsg_open_table(&b, std::string(1 << 20, 'y').c_str()), nullptr);
    EXPECT_EQ(blob_raw_len(b.head), len);
}

TEST_F(BlobBuf, NameTooLongForItsLengthField)
{
    EXPECT_EQ(blobmsg_add_u8(&b, std::string(65536, 'n').c_str(), 1), -1);
    EXPECT_EQ(blob_raw_len(b.head), 4u);
    EXPECT_EQ(blobmsg_add_u8(&b, std::string(65535, 'n').c_str(), 1), 0);
}

TEST_F(BlobBuf, CookiesSurviveGrowthAndAreNeverNull)
{
    void *outer = blobmsg_open_table(&b, "o");
    ASSERT_NE(outer, nullptr);
    void *inner = blobmsg_open_array(&b, "i");
    for (int i = 0; i < 1000; i++) {
        blobmsg_add_u32(&b, nullptr, static_cast<uint32_t>(i));
    }
    blobmsg_close_array(&b, inner);
    blobmsg_close_table(&b, outer);
    blobmsg_add_u8(&b, "end", 1);
    blob_attr *pos;
    size_t rem;
    int members = 0;
    blobmsg_for_each_attr(pos, b.head, rem)
    {
        members++;
    }
    EXPECT_EQ(members, 2);
    EXPECT_EQ(blobmsg_check_array(
                  static_cast<blob_attr *>(blobmsg_data(static_cast<blob_attr *>(blob_data(b.head)))),
                  BLOBMSG_TYPE_INT32),
              1000);
}

TEST_F(BlobBuf, StringBufferCanGrow)
{
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(&b, "s", 3));
    strcpy(text, "abc");
    text = static_cast<char *>(blobmsg_realloc_string_buffer(&b, 1000));
    ASSERT_STREQ(text, "abc");
    memset(text, 'x', 1000);
    text[1000] = 0;
    blobmsg_add_string_buffer(&b);
    auto *attr = static_cast<blob_attr *>(blob_data(b.head));
    EXPECT_EQ(std::string(blobmsg_get_string(attr)), std::string(1000, 'x'));
    EXPECT_TRUE(blobmsg_check_attr(attr, true));
}

TEST_F(BlobBuf, PutRawCopiesWhatItGets)
{
    const auto attr = from_hex("05000008 01020304");
    EXPECT_EQ(blob_put_raw(&b, attr.data(), 3), nullptr);
    EXPECT_EQ(blob_put_raw(&b, nullptr, 8), nullptr);
    ASSERT_NE(blob_put_raw(&b, attr.data(), 8), nullptr);
    EXPECT_EQ(blob_raw_len(b.head), 12u);
    EXPECT_EQ(blob_get_u32(static_cast<blob_attr *>(blob_data(b.head))), 0x01020304u);
}

TEST_F(BlobBuf, FreeLeavesItReadyForReuse)
{
    blob_buf_free(&b);
    EXPECT_EQ(b.buf, nullptr);
    EXPECT_EQ(b.head, nullptr);
    EXPECT_EQ(b.buflen, 0);
    EXPECT_EQ(blob_put_u8(&b, 1, 1), nullptr);
    EXPECT_EQ(blob_buf_init(&b, 0), 0);
    EXPECT_NE(blob_put_u8(&b, 1, 1), nullptr);
}

TEST_F(BlobBuf, CopiesAndComparisons)
{
    blob_put_string(&b, 2, "text");
    blob_attr *copy = blob_memdup(b.head);
    EXPECT_TRUE(blob_attr_equal(copy, b.head));
    blob_put_u8(&b, 1, 0);
    EXPECT_FALSE(blob_attr_equal(copy, b.head));
    EXPECT_FALSE(blob_attr_equal(copy, nullptr));
    EXPECT_TRUE(blob_attr_equal(nullptr, nullptr));
    free(copy);
}

TEST(BlobParse, LastOfSeveralWinsAndBadOnesAreSkipped)
{
    // id 1 twice; id 2 an unterminated text; id 3 too short for a number; id 9 out of range.
    auto bytes = from_hex("00000038 01000008 00000001 01000008 00000002 02000006 61620000 03000006 00010000 "
                          "09000008 00000001 04000005 07000000 00000000");
    auto *root = reinterpret_cast<blob_attr *>(bytes.data());
    const blob_attr_info info[5] = {{BLOB_ATTR_UNSPEC, 0, 0, nullptr},
                                    {BLOB_ATTR_INT32, 0, 0, nullptr},
                                    {BLOB_ATTR_STRING, 0, 0, nullptr},
                                    {BLOB_ATTR_INT32, 0, 0, nullptr},
                                    {BLOB_ATTR_INT8, 0, 0, nullptr}};
    blob_attr *found[5];
    EXPECT_EQ(blob_parse(root, found, info, 5), 2);
    ASSERT_NE(found[1], nullptr);
    EXPECT_EQ(blob_get_u32(found[1]), 2u);
    EXPECT_EQ(found[2], nullptr);
    EXPECT_EQ(found[3], nullptr);
    ASSERT_NE(found[4], nullptr);
    EXPECT_EQ(blob_get_u8(found[4]), 7);
    EXPECT_EQ(blob_parse_untrusted(root, bytes.size(), found, info, 5), 2);
    blob_attr *const untouched = reinterpret_cast<blob_attr *>(8);
    found[1] = untouched;
    EXPECT_EQ(blob_parse_untrusted(root, bytes.size() - 8, found, info, 5), 0);
    EXPECT_EQ(blob_parse_untrusted(root, 3, found, info, 5), 0);
    EXPECT_EQ(found[1], untouched);
}

TEST(BlobParse, LengthBoundsCountTheHeader)
{
    auto bytes = from_hex("0000000c 01000008 00000001");
    auto *root = reinterpret_cast<blob_attr *>(bytes.data());
    blob_attr *found[2];
    blob_attr_info info[2] = {{}, {BLOB_ATTR_BINARY, 8, 8, nullptr}};
    EXPECT_EQ(blob_parse(root, found, info, 2), 1);
    info[1].minlen = 9;
    EXPECT_EQ(blob_parse(root, found, info, 2), 0);
    info[1] = {BLOB_ATTR_BINARY, 0, 7, nullptr};
    EXPECT_EQ(blob_parse(root, found, info, 2), 0);
}

TEST(BlobIterate, StopsWhereAChildDoesNotFit)
{
    // Second child claims more than is left; in the other, its padding is cut off.
    auto lying = from_hex("00000010 00000008 00000001 00000009");
    auto cut = from_hex("00000011 00000008 00000001 00000005 07000000");
    auto zero = from_hex("0000000c 00000000 00000000");
    blob_attr *pos;
    size_t rem;
    int count = 0;
    blob_for_each_attr(pos, reinterpret_cast<blob_attr *>(lying.data()), rem)
    {
        count++;
    }
    EXPECT_EQ(count, 1);
    count = 0;
    blob_for_each_attr(pos, reinterpret_cast<blob_attr *>(cut.data()), rem)
    {
        count++;
    }
    EXPECT_EQ(count, 1);
    count = 0;
    blob_for_each_attr(pos, reinterpret_cast<blob_attr *>(zero.data()), rem)
    {
        count++;
    }
    EXPECT_EQ(count, 0);
    blob_attr *none = nullptr;
    blob_for_each_attr(pos, none, rem)
    {
        count++;
    }
    blobmsg_for_each_attr(pos, none, rem)
    {
        count++;
    }
    EXPECT_EQ(count, 0);
}

TEST(BlobCheckType, LengthsByType)
{
    const char text[] = "abcdefgh";
    EXPECT_TRUE(blob_check_type(text, 1, BLOB_ATTR_INT8));
    EXPECT_FALSE(blob_check_type(text, 2, BLOB_ATTR_INT8));
    EXPECT_TRUE(blob_check_type(text, 2, BLOB_ATTR_INT16));
    EXPECT_FALSE(blob_check_type(text, 3, BLOB_ATTR_INT32));
    EXPECT_TRUE(blob_check_type(text, 4, BLOB_ATTR_INT32));
    EXPECT_TRUE(blob_check_type(text, 8, BLOB_ATTR_INT64));
    EXPECT_FALSE(blob_check_type(text, 7, BLOB_ATTR_DOUBLE));
    EXPECT_TRUE(blob_check_type(text, 9, BLOB_ATTR_DOUBLE));
    EXPECT_FALSE(blob_check_type(text, 0, BLOB_ATTR_STRING));
    EXPECT_FALSE(blob_check_type(text, 8, BLOB_ATTR_STRING));
    EXPECT_TRUE(blob_check_type(text, 9, BLOB_ATTR_STRING));
    EXPECT_TRUE(blob_check_type(text, 0, BLOB_ATTR_BINARY));
    EXPECT_FALSE(blob_check_type(text, 4, BLOB_ATTR_LAST));
}

} // namespace
