// Messages and JSON text.
#include "support.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include <fstream>

namespace {

class Json : public ::testing::Test {
protected:
    Json() { blob_buf_init(&b, 0); }
    ~Json() override { blob_buf_free(&b); }
    blob_attr *first() { return static_cast<blob_attr *>(blob_data(b.head)); }
    static std::string take(char *text)
    {
        std::string copy = text ? text : "(null)";
        free(text);
        return copy;
    }
    std::string compact() { return take(blobmsg_format_json(b.head, true)); }
    std::string round_trip(const char *json)
    {
        blob_buf_init(&b, 0);
        return blobmsg_add_json_from_string(&b, json) ? compact() : "refused";
    }
    blob_buf b = {};
};

TEST_F(Json, FormatsOfOneMessage)
{
    ASSERT_TRUE(blobmsg_add_json_from_string(&b, R"({"a":1,"arr":[1]})"));
    blob_attr *a = first();
    blob_attr *arr = blob_next(a);
    EXPECT_EQ(compact(), R"({"a":1,"arr":[1]})");
    EXPECT_EQ(take(blobmsg_format_json(a, false)), R"("a":1)");
    EXPECT_EQ(take(blobmsg_format_json(a, true)), "{}");
    EXPECT_EQ(take(blobmsg_format_json(arr, false)), R"("arr":[1])");
    EXPECT_EQ(take(blobmsg_format_json(arr, true)), "[1]");
    EXPECT_EQ(take(blobmsg_format_json_value(arr)), "[1]");
    EXPECT_EQ(take(blobmsg_format_json_indent(b.head, true, 0)),
              "{\n\t\"a\": 1,\n\t\"arr\": [\n\t\t1\n\t]\n}");
    EXPECT_EQ(take(blobmsg_format_json_indent(b.head, true, 2)),
              "{\n\t\t\t\"a\": 1,\n\t\t\t\"arr\": [\n\t\t\t\t1\n\t\t\t]\n\t\t}");
    EXPECT_EQ(take(blobmsg_format_json_value_indent(arr, 0)), "[\n\t1\n]");
}

TEST_F(Json, EmptyMessageIndented)
{
    EXPECT_EQ(take(blobmsg_format_json_indent(b.head, true, 0)), "{\n\t\n}");
}

TEST_F(Json, AtMostSixteenTabs)
{
    const std::string text = take(blobmsg_format_json_indent(b.head, true, 20));
    EXPECT_EQ(text, "{\n" + std::string(16, '\t') + "\n" + std::string(16, '\t') + "}");
}

TEST_F(Json, Escapes)
{
    blobmsg_add_string(&b, "s", "\b\n\t\r\"\\/\f\x01\x1f\x7f\xc3\xa4\xff");
    EXPECT_EQ(compact(), "{\"s\":\"\\b\\n\\t\\r\\\"\\\\/\\u000c\\u0001\\u001f\x7f\xc3\xa4\xff\"}");
}

TEST_F(Json, EscapesInNames)
{
    blobmsg_add_u8(&b, "a\"b", 1);
    EXPECT_EQ(compact(), R"({"a\"b":true})");
}

TEST_F(Json, Numbers)
{
    EXPECT_EQ(round_trip(R"({"x":2147483647,"y":2147483648,"z":-2147483648,"w":-2147483649})"),
              R"({"x":2147483647,"y":2147483648,"z":-2147483648,"w":-2147483649})");
    EXPECT_EQ(blobmsg_type(first()), BLOBMSG_TYPE_INT32);
    EXPECT_EQ(blobmsg_type(blob_next(first())), BLOBMSG_TYPE_INT64);
    EXPECT_EQ(round_trip(R"({"x":18446744073709551615})"), R"({"x":9223372036854775807})");
    EXPECT_EQ(round_trip(R"({"x":1.0})"), R"({"x":1.000000})");
    EXPECT_EQ(round_trip(R"({"x":1e20})"), R"({"x":100000000000000000000.000000})");
}

TEST_F(Json, LargestRealFits)
{
    blobmsg_add_double(&b, "x", -1.7976931348623157e308);
    EXPECT_EQ(compact().size(), std::string(R"({"x":-.000000})").size() + 309);
}

TEST_F(Json, OnlyObjectsAreTaken)
{
    EXPECT_EQ(round_trip("[1]"), "refused");
    EXPECT_EQ(round_trip("5"), "refused");
    EXPECT_EQ(round_trip("{bad"), "refused");
    EXPECT_EQ(round_trip(""), "refused");
    EXPECT_EQ(round_trip(R"({"a":1} rest)"), R"({"a":1})");
    EXPECT_EQ(round_trip(R"({"a":[[],{},null,false]})"), R"({"a":[[],{},null,false]})");
}

TEST_F(Json, FromFile)
{
    support::TempDir dir;
    std::ofstream(dir.path("f.json")) << R"({"k":"v"})";
    EXPECT_TRUE(blobmsg_add_json_from_file(&b, dir.path("f.json").c_str()));
    EXPECT_EQ(compact(), R"({"k":"v"})");
    EXPECT_FALSE(blobmsg_add_json_from_file(&b, dir.path("none").c_str()));
}

TEST_F(Json, CallbackReplacesValues)
{
    ASSERT_TRUE(blobmsg_add_json_from_string(&b, R"({"a":1,"t":{"b":"x"}})"));
    auto numbers = [](void *priv, blob_attr *attr) -> const char * {
        return blobmsg_type(attr) == BLOBMSG_TYPE_INT32 ? static_cast<const char *>(priv) : nullptr;
    };
    char word[] = "\"number\"";
    EXPECT_EQ(take(blobmsg_format_json_with_cb(b.head, true, numbers, word, -1)),
              R"({"a":"number","t":{"b":"x"}})");
}

TEST_F(Json, MembersThatAreUnsoundPrintNothing)
{
    blobmsg_add_u8(&b, "a", 1);
    blobmsg_add_field(&b, BLOBMSG_TYPE_STRING, "s", "no end", 6);
    blobmsg_add_u8(&b, "z", 0);
    EXPECT_EQ(compact(), R"({"a":true,,"z":false})");
}

TEST_F(Json, NestingAsDeepAsAMessageAllowsEndsWell)
{
    // Each level takes eight bytes, so a message of a megabyte holds more levels than a stack would.
    const size_t levels = 131000;
    support::Bytes bytes;
    for (size_t i = 0; i < levels; i++) {
        support::append_u32(bytes, static_cast<uint32_t>(0x81000000 | (levels - i) * 8));
        support::append_u32(bytes, 0);
    }
    auto *deep = reinterpret_cast<blob_attr *>(bytes.data());
    ASSERT_TRUE(blobmsg_check_attr(deep, false));
    const std::string text = take(blobmsg_format_json(deep, true));
    EXPECT_EQ(text.substr(0, 3), "[[[");
    EXPECT_EQ(text.substr(text.size() - 3), "]]]");
    EXPECT_GT(text.size(), 1000u);
}

} // namespace
