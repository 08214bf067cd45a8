// Messages built call by call, compared byte by byte, and their JSON text.
#include "support.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include <ostream>

namespace {

struct Vector {
    const char *name;
    void (*build)(blob_buf *);
    std::string bytes;
    std::string json;
};

void PrintTo(const Vector &vector, std::ostream *out)
{
    *out << vector.name;
}

void add_nested(blob_buf *b)
{
    void *o = blobmsg_open_table(b, "o");
    blobmsg_add_u8(b, "up", 1);
    void *in = blobmsg_open_table(b, "in");
    blobmsg_add_string(b, "p", "q");
    blobmsg_close_table(b, in);
    void *v = blobmsg_open_array(b, "v");
    void *unnamed = blobmsg_open_table(b, nullptr);
    blobmsg_add_u16(b, "w", 9);
    blobmsg_close_table(b, unnamed);
    blobmsg_close_array(b, v);
    blobmsg_close_table(b, o);
    blobmsg_add_u32(b, "after", 5);
}

void add_array(blob_buf *b)
{
    void *l = blobmsg_open_array(b, "l");
    blobmsg_add_u32(b, nullptr, 1);
    blobmsg_add_u32(b, nullptr, 2);
    blobmsg_add_string(b, nullptr, "z");
    blobmsg_close_array(b, l);
}

void add_string_buffer(blob_buf *b)
{
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(b, "sb", 20));
    strcpy(text, "short");
    blobmsg_add_string_buffer(b);
    blobmsg_add_u8(b, "z", 1);
}

std::string long_string_bytes()
{
    std::string hex = "0000013c 83000138 00046c6f 6e670000";
    for (int i = 0; i < 299; i++) {
        hex += "41";
    }
    return hex + "00";
}

const Vector vectors[] = {
    {"empty", [](blob_buf *) {}, "00000004", "{}"},
    {"table_root", [](blob_buf *b) { blobmsg_buf_init(b); }, "02000004", "{}"},
    {"u8", [](blob_buf *b) { blobmsg_add_u8(b, "a", 1); }, "00000010 87000009 00016100 01000000",
     R"({"a":true})"},
    {"u16", [](blob_buf *b) { blobmsg_add_u16(b, "ab", 0x1234); },
     "00000014 8600000e 00026162 00000000 12340000", R"({"ab":4660})"},
    {"u32", [](blob_buf *b) { blobmsg_add_u32(b, "abc", 0xdeadbeef); },
     "00000014 85000010 00036162 63000000 deadbeef", R"({"abc":-559038737})"},
    {"u64", [](blob_buf *b) { blobmsg_add_u64(b, "abcd", 0x0102030405060708); },
     "00000018 84000014 00046162 63640000 01020304 05060708", R"({"abcd":72623859790382856})"},
    {"real", [](blob_buf *b) { blobmsg_add_double(b, "d", 1.5); },
     "00000014 88000010 00016400 3ff80000 00000000", R"({"d":1.500000})"},
    {"string", [](blob_buf *b) { blobmsg_add_string(b, "s", "hi"); }, "00000010 8300000b 00017300 68690000",
     R"({"s":"hi"})"},
    {"empty_string", [](blob_buf *b) { blobmsg_add_string(b, "s", ""); },
     "00000010 83000009 00017300 00000000", R"({"s":""})"},
    {"unnamed", [](blob_buf *b) { blobmsg_add_string(b, nullptr, "x"); },
     "00000010 8300000a 00000000 78000000", R"({"x"})"},
    {"padding_between",
     [](blob_buf *b) {
         blobmsg_add_string(b, "k", "abc");
         blobmsg_add_u8(b, "f", 0);
         blobmsg_add_u32(b, "n", 7);
     },
     "00000028 8300000c 00016b00 61626300 87000009 00016600 00000000 8500000c 00016e00 00000007",
     R"({"k":"abc","f":false,"n":7})"},
    {"empty_table", [](blob_buf *b) { blobmsg_close_table(b, blobmsg_open_table(b, "t")); },
     "0000000c 82000008 00017400", R"({"t":{}})"},
    {"empty_array", [](blob_buf *b) { blobmsg_close_array(b, blobmsg_open_array(b, "arr")); },
     "00000010 8100000c 00036172 72000000", R"({"arr":[]})"},
    {"array", add_array,
     "00000030 8100002c 00016c00 8500000c 00000000 00000001 8500000c 00000000 00000002 8300000a 00000000 "
     "7a000000",
     R"({"l":[1,2,"z"]})"},
    {"nested", add_nested,
     "00000060 8200004c 00016f00 8700000d 00027570 00000000 01000000 82000018 0002696e 00000000 8300000a "
     "00017000"
     "71000000 8100001c 00017600 82000014 00000000 8600000a 00017700 00090000 85000010 00056166 74657200 "
     "00000005",
     R"({"o":{"up":true,"in":{"p":"q"},"v":[{"w":9}]},"after":5})"},
    {"long_string", [](blob_buf *b) { blobmsg_add_string(b, "long", std::string(299, 'A').c_str()); },
     long_string_bytes(), R"({"long":")" + std::string(299, 'A') + R"("})"},
    {"null", [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, "nil", nullptr, 0); },
     "00000010 8000000c 00036e69 6c000000", R"({"nil":null})"},
    {"long_name", [](blob_buf *b) { blobmsg_add_string(b, "averyveryverylongname", "v"); },
     "00000024 8300001e 00156176 65727976 65727976 6572796c 6f6e676e 616d6500 76000000",
     R"({"averyveryverylongname":"v"})"},
    {"string_buffer", add_string_buffer,
     "00000024 83000012 00027362 00000000 73686f72 74000000 87000009 00017a00 01000000",
     R"({"sb":"short","z":true})"},
    {"printf", [](blob_buf *b) { EXPECT_EQ(blobmsg_printf(b, "pf", "%d-%s", 42, "x"), 4); },
     "00000018 83000011 00027066 00000000 34322d78 00000000", R"({"pf":"42-x"})"},
    {"from_json",
     [](blob_buf *b) {
         EXPECT_TRUE(blobmsg_add_json_from_string(b,
                                                  R"({"a":1,"b":-1,"c":4294967296,"d":0.5,"e":true,"f":null,)"
                                                  R"("g":["x",{}],"h":{"i":"j"}})"));
     },
     "00000080 8500000c 00016100 00000001 8500000c 00016200 ffffffff 84000010 00016300 00000001 00000000 "
     "88000010"
     "00016400 3fe00000 00000000 87000009 00016500 01000000 80000008 00016600 8100001c 00016700 8300000a "
     "00000000"
     "78000000 82000008 00000000 82000014 00016800 8300000a 00016900 6a000000",
     R"({"a":1,"b":-1,"c":4294967296,"d":0.500000,"e":true,"f":null,"g":["x",{}],"h":{"i":"j"}})"},
};

class BlobmsgVector : public ::testing::TestWithParam<Vector> {};

support::Bytes bytes_of(const blob_buf &b)
{
    const auto *first = reinterpret_cast<const uint8_t *>(b.head);
    return {first, first + blob_raw_len(b.head)};
}

TEST_P(BlobmsgVector, BytesAndJson)
{
    blob_buf b = {};
    ASSERT_EQ(blob_buf_init(&b, 0), 0);
    GetParam().build(&b);
    EXPECT_EQ(support::to_hex(bytes_of(b)), support::to_hex(support::from_hex(GetParam().bytes)));
    char *json = blobmsg_format_json(b.head, true);
    EXPECT_EQ(json, GetParam().json);
    free(json);
    blob_buf_free(&b);
}

// A buffer that has held something else leaves none of it in the padding.
TEST_P(BlobmsgVector, SameBytesInAUsedBuffer)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blobmsg_add_string(&b, "dirt", std::string(400, '\xee').c_str());
    ASSERT_EQ(blob_buf_init(&b, 0), 0);
    GetParam().build(&b);
    EXPECT_EQ(support::to_hex(bytes_of(b)), support::to_hex(support::from_hex(GetParam().bytes)));
    blob_buf_free(&b);
}

INSTANTIATE_TEST_SUITE_P(All, BlobmsgVector, ::testing::ValuesIn(vectors),
                         [](const auto &vector) { return std::string(vector.param.name); });

TEST(BlobVector, PlainAttributes)
{
    blob_buf b = {};
    blob_buf_init(&b, 0);
    blob_put_u8(&b, 9, 1);
    blob_put_u16(&b, 1, 0x1234);
    blob_put_u32(&b, 3, 0xcafebabe);
    blob_put_u64(&b, 4, 1);
    blob_put_string(&b, 2, "obj");
    void *nest = blob_nest_start(&b, 7);
    blob_put_u32(&b, 0, 5);
    blob_nest_end(&b, nest);
    EXPECT_EQ(
        support::to_hex(bytes_of(b)),
        "0000003c 09000005 01000000 01000006 12340000 03000008 cafebabe 0400000c 00000000 00000001 02000008 "
        "6f626a00 0700000c 00000008 00000005");
    blob_buf_free(&b);
}

} // namespace
