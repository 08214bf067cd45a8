// The file of a recording: at every moment it holds the start and the latest records, whole; whatever is cut
// off or changed in it is noticed; and no password is in it.

#include "message.h"
#include "record/mask.h"
#include "record/ring.h"
#include "recording.h"

#include <gtest/gtest.h>
#include <libubus.h>
#include <random>

using namespace seam;
using namespace seam::format;

namespace {

constexpr size_t file_size = 65536;
constexpr uint64_t begin_us = 1700000000000000;

// A file that is written as the library does it; the records count from 0 on.
class Written {
public:
    Written() : bytes_(file_size / sizeof(uint64_t)) { ring.begin(base(), file_size, begin_us, 0); }

    // A record of a number, followed by a text of some length.
    void add(size_t length, Kind kind = Kind::debug)
    {
        constexpr size_t head = header_size + 1 + 8;
        const size_t used = head + (length == 0 ? 0 : 3 + length);
        const size_t size = padded(used);
        // The room is asked for step by step, as it is for the values of a call.
        uint8_t *record = ring.room(0, header_size);
        store(record, static_cast<uint32_t>(kind) << 24);
        store64(record + 8, count);
        record = ring.room(header_size, head);
        record[header_size] = static_cast<uint8_t>(Tag::number);
        store64(record + header_size + 1, count);
        record = ring.room(head, size);
        memset(record + head, 'x', size - head);
        if (length != 0) {
            record[head] = static_cast<uint8_t>(Tag::text);
            record[head + 1] = static_cast<uint8_t>(length);
            record[head + 2] = static_cast<uint8_t>(length >> 8);
        }
        memset(record + used, 0, size - used);
        store(record, load(record) | static_cast<uint32_t>(size));
        store(record + 4, record_check(record, size));
        last_place = ring.commit(size);
        ++count;
    }

    uint8_t *base() { return reinterpret_cast<uint8_t *>(bytes_.data()); }
    std::string text() { return {reinterpret_cast<const char *>(base()), file_size}; }

    record::Ring ring;
    uint64_t count = 0;
    size_t last_place = 0;

private:
    std::vector<uint64_t> bytes_;
};

Recording read(Written &written)
{
    auto read = read_recording(written.text());
    const auto *error = std::get_if<std::string>(&read);
    EXPECT_EQ(error, nullptr) << *error;
    return error == nullptr ? std::get<Recording>(read) : Recording{};
}

std::string error_of(const std::string &bytes)
{
    const auto read = read_recording(bytes);
    const auto *error = std::get_if<std::string>(&read);
    return error == nullptr ? "" : *error;
}

uint64_t number(const Record &record)
{
    return static_cast<uint64_t>(record.values[0].number);
}

// A start of some records, then some more.
Written with_records(size_t start, size_t more)
{
    Written written;
    for (size_t i = 0; i < start + more; ++i) {
        if (i == start) {
            written.ring.start_over();
        }
        written.add(i % 90);
    }
    return written;
}

} // namespace

TEST(Recording, KeepsStartAndLatestRecords)
{
    std::mt19937 random(1);
    for (int run = 0; run < 20; ++run) {
        Written written;
        const size_t start = random() % 200;
        for (size_t i = 0; i < 3000; ++i) {
            if (i == start) {
                written.ring.start_over();
            }
            written.add(random() % (i < start ? 100 : i % 50 == 0 ? 6000 : 200));
            if (i % 7 != 0) {
                continue;
            }
            const Recording recording = read(written);
            const size_t kept = std::min(i + 1, start);
            ASSERT_GE(recording.records.size(), kept);
            for (size_t at = 0; at < kept; ++at) {
                ASSERT_EQ(number(recording.records[at]), at);
            }
            // Behind the start the latest, without a gap up to the last.
            const size_t latest = recording.records.size() - kept;
            for (size_t at = 0; at < latest; ++at) {
                ASSERT_EQ(number(recording.records[kept + at]), i + 1 - latest + at);
            }
            const bool is_whole = recording.records.size() == i + 1;
            ASSERT_EQ(recording.gap == recording.records.size(), is_whole);
        }
        const Recording recording = read(written);
        EXPECT_LT(recording.gap, recording.records.size());
        EXPECT_GT(recording.records.size(), start + 100);
    }
}

TEST(Recording, AStartThatIsTooLongLeavesHalfOfTheFileToTheRing)
{
    Written written;
    for (int i = 0; i < 5000; ++i) {
        written.add(100);
    }
    const Recording recording = read(written);
    EXPECT_EQ(number(recording.records.front()), 0U);
    ASSERT_LT(recording.gap, recording.records.size());
    EXPECT_NEAR(static_cast<double>(recording.records[recording.gap - 1].place), file_size / 2, 300);
    EXPECT_EQ(number(recording.records.back()), 4999U);
}

TEST(Recording, ARecordThatIsTooLargeHasNoRoom)
{
    Written written = with_records(10, 10);
    EXPECT_EQ(written.ring.room(0, file_size), nullptr);
    written.add(3);
    EXPECT_EQ(number(read(written).records.back()), 20U);
}

TEST(Recording, ARowIsLeftOutBetweenOnePlaceAndAnother)
{
    Written written = with_records(5, 0);
    written.ring.start_over();
    std::vector<size_t> places;
    for (int i = 0; i < 100; ++i) {
        written.add(50);
        places.push_back(written.last_place);
    }
    alignas(unit) uint8_t note[padded(header_size + 9)] = {};
    store(note, static_cast<uint32_t>(Kind::left_out) << 24 | sizeof(note));
    note[header_size] = static_cast<uint8_t>(Tag::number);
    store64(note + header_size + 1, 80);
    store(note + 4, record_check(note, sizeof(note)));
    const size_t piece_size = places[31] - places[30];
    EXPECT_FALSE(
        written.ring.leave_out({places[10], places[20], places[15], piece_size}, note, sizeof(note)));
    EXPECT_TRUE(written.ring.leave_out({places[10], places[90], places[30], piece_size}, note, sizeof(note)));
    written.add(7);

    const Recording recording = read(written);
    ASSERT_EQ(recording.records.size(), 5U + 10 + 1 + 1 + 10 + 1);
    EXPECT_EQ(recording.records[15].kind, Kind::left_out);
    EXPECT_EQ(number(recording.records[15]), 80U);
    EXPECT_EQ(number(recording.records[16]), 35U);
    EXPECT_EQ(number(recording.records[17]), 95U);
    EXPECT_EQ(number(recording.records.back()), 105U);
    EXPECT_EQ(recording.gap, recording.records.size());
}

TEST(Recording, WhereverItIsCutItSaysSo)
{
    const std::string whole = with_records(300, 300).text();
    EXPECT_EQ(error_of(""), "empty");
    EXPECT_EQ(error_of("/tmp is full of other files"), "no recording");
    for (size_t size = 1; size < whole.size(); size += size < 200 ? 1 : 97) {
        EXPECT_TRUE(error_of(whole.substr(0, size)).starts_with("cut: "))
            << size << error_of(whole.substr(0, size));
    }
    EXPECT_TRUE(error_of(whole + "x").starts_with("cut: "));
    EXPECT_EQ(error_of(whole), "");
}

TEST(Recording, AnotherVersionIsNotRead)
{
    std::string bytes = with_records(3, 0).text();
    bytes[at_version] = 2;
    EXPECT_EQ(error_of(bytes), "of version 2, not 1");
}

TEST(Recording, AFlippedBitIsNoticedWhereverItIs)
{
    const std::string whole = with_records(40, 40).text();
    const auto recording = std::get<Recording>(read_recording(whole));
    const size_t used = recording.records.back().place + 64;
    const size_t end = place_of(load(reinterpret_cast<const uint8_t *>(whole.data()) + at_end));
    ASSERT_LT(end, used + 200);
    for (size_t at = 0; at < end; ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
            EXPECT_NE(error_of(bytes), "") << "bit " << bit << " of byte " << at;
        }
    }
}

TEST(Mask, APasswordIsMaskedByTheNameOfItsField)
{
    Message message;
    message.text("username", "bob")
        .text("password", "hunter2")
        .open("more", false)
        .text("passwd", "x")
        .close();
    auto *head = reinterpret_cast<char *>(message.head());
    record::mask_message(head, blob_raw_len(message.head()));
    EXPECT_EQ(message_text(message.head()), R"({username: "bob", password: "*******", more: {passwd: "*"}})");
}

TEST(Mask, APasswordIsFoundInALineByTheWordBeforeIt)
{
    const auto masked = [](std::string text) {
        record::mask_text(text.data(), text.size());
        return text;
    };
    EXPECT_EQ(masked("user bob password hunter2 mtu 1492"), "user bob password ******* mtu 1492");
    EXPECT_EQ(masked("password a password b"), "password * password *");
    EXPECT_EQ(masked("nothing to hide"), "nothing to hide");
    EXPECT_EQ(masked("password "), "password ");
    // One with blanks is known by then; a line that is cut has only a part of it.
    record::keep_secret("two words", 9);
    EXPECT_EQ(masked("password two words mtu"), "password ********* mtu");
    EXPECT_EQ(masked("password two wor"), "password *******");
}

TEST(Mask, AConfigurationKeepsItsLinesAndQuotes)
{
    std::string text =
        "config wan wan1\n\toption username 'bob'\n\toption password 'hunter 2'\n\toption mtu 1492\n";
    record::mask_config(text.data(), text.size());
    EXPECT_EQ(text,
              "config wan wan1\n\toption username 'bob'\n\toption password '****** *'\n\toption mtu 1492\n");
}

TEST(Mask, AMessageThatLiesAboutItsLengthsIsReadNoFurther)
{
    std::mt19937 random(2);
    Message message;
    message.text("password", "hunter2").open("list", true).text("", "a").close();
    for (int run = 0; run < 20000; ++run) {
        std::vector<char> bytes(blob_raw_len(message.head()));
        memcpy(bytes.data(), message.head(), bytes.size());
        for (int change = 0; change < 3; ++change) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        const std::vector<char> before = bytes;
        record::mask_message(bytes.data(), bytes.size());
        EXPECT_EQ(bytes.size(), before.size());
    }
}
