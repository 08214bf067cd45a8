// A recorded session, played against our broker: every byte it sends must be the recorded one. Ids are
// random, so the recorded ones stand for those met in this run; each must keep standing for the same.
#include "support.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

using namespace support;

namespace {

struct Entry {
    int connection;
    bool from_broker;
    std::string type;
    Bytes bytes;
};

std::vector<Entry> load()
{
    std::vector<Entry> entries;
    std::ifstream file(SESSION_FILE);
    std::string line;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line);
        Entry entry;
        std::string direction;
        std::string hex;
        fields >> entry.connection >> direction >> entry.type;
        std::getline(fields, hex);
        entry.from_broker = direction == "<";
        entry.bytes = from_hex(hex);
        entries.push_back(entry);
    }
    return entries;
}

const std::set<uint32_t> recorded_ids = {
    0xbfc46fee, 0xfa7c63d7, 0x2447753c, 0x9ba4996a, 0x69586bbe,
    0xf12139ff, 0x1e0dea5d, 0x017da17c, 0xfd53faf7, 0x0ab744ea, // clients
    0x5a3767ff, 0x231858c8, 0x57b00f26,                         // objects
    0x12a7d999,                                                 // type
};

class Ids {
public:
    // The recorded bytes as they must be in this run, ids met for the first time taken from what came.
    Bytes expect(const Bytes &recorded, const Bytes &actual)
    {
        Bytes expected = recorded;
        for (size_t at = 4; at + 4 <= recorded.size(); at += 4) {
            const uint32_t word = u32_at(recorded, at);
            if (!recorded_ids.contains(word)) {
                continue;
            }
            if (!map_.contains(word) && at + 4 <= actual.size()) {
                const uint32_t fresh = u32_at(actual, at);
                EXPECT_GE(fresh, 1024u);
                EXPECT_TRUE(used_.insert(fresh).second) << "id given twice";
                map_[word] = fresh;
            }
            put(expected, at, map_[word]);
        }
        return expected;
    }
    Bytes translate(const Bytes &recorded) const
    {
        Bytes bytes = recorded;
        for (size_t at = 4; at + 4 <= recorded.size(); at += 4) {
            const auto found = map_.find(u32_at(recorded, at));
            if (found != map_.end()) {
                put(bytes, at, found->second);
            }
        }
        return bytes;
    }

private:
    static void put(Bytes &bytes, size_t at, uint32_t value)
    {
        Bytes word;
        append_u32(word, value);
        std::copy(word.begin(), word.end(), bytes.begin() + static_cast<ptrdiff_t>(at));
    }
    std::map<uint32_t, uint32_t> map_;
    std::set<uint32_t> used_;
};

// Events carry the broker's count of events so far, which started earlier in the recording.
bool is_event(const Entry &entry)
{
    return entry.type == "INVOKE" && u32_at(entry.bytes, 4) == 0;
}

TEST(Session, EveryRecordedByteComesBack)
{
    const std::vector<Entry> entries = load();
    ASSERT_EQ(entries.size(), 85u);

    Broker broker;
    Ids ids;
    std::map<int, std::unique_ptr<RawClient>> connections;
    std::map<Bytes, Bytes> event_seq; // recorded to actual
    size_t compared = 0;

    for (const Entry &entry : entries) {
        SCOPED_TRACE(std::to_string(entry.connection) + (entry.from_broker ? " < " : " > ") + entry.type);
        auto &client = connections[entry.connection];
        if (!client) {
            client = std::make_unique<RawClient>(broker.socket(), false);
        }
        if (!entry.from_broker) {
            Bytes bytes = ids.translate(entry.bytes);
            const Bytes seq(bytes.begin() + 2, bytes.begin() + 4);
            if (entry.type == "STATUS" && u32_at(bytes, 4) == 0 && event_seq.contains(seq)) {
                std::copy(event_seq[seq].begin(), event_seq[seq].end(), bytes.begin() + 2);
            }
            client->send(bytes);
            continue;
        }
        Bytes actual = client->receive();
        if (is_event(entry)) {
            event_seq[Bytes(entry.bytes.begin() + 2, entry.bytes.begin() + 4)] =
                Bytes(actual.begin() + 2, actual.begin() + 4);
            std::copy(entry.bytes.begin() + 2, entry.bytes.begin() + 4, actual.begin() + 2);
        }
        ASSERT_EQ(to_hex(actual), to_hex(ids.expect(entry.bytes, actual)));
        compared++;
    }
    EXPECT_EQ(compared, 55u);
    for (auto &[number, client] : connections) {
        EXPECT_TRUE(client->silent(std::chrono::milliseconds(20))) << "more than recorded on " << number;
    }
    EXPECT_TRUE(broker.running());
}

} // namespace
