// Recordings. What is read can be shown line by line; damage is noticed.
//
// Few changed bytes would come past the checks, so the input is read as it is, and once more with all checks
// put right.
#include "recording.h"

#include "input.h"

#include <string>

namespace {

using fuzz::promise;
using namespace seam;
using namespace seam::format;

uint8_t *bytes_of(std::string &bytes)
{
    return reinterpret_cast<uint8_t *>(bytes.data());
}

void put_right(std::string &bytes)
{
    uint8_t *base = bytes_of(bytes);
    memcpy(base, magic, sizeof(magic));
    store(base + at_version, version);
    store(base + at_size, static_cast<uint32_t>(bytes.size()));
    store(base + at_check, check_of(base, at_check));
    memset(base + at_zeros, 0, at_start_end - at_zeros);
    for (const size_t at : {at_start_end, at_tail, at_end, at_lost}) {
        store(base + at, mark_of(place_of(load(base + at)) % (bytes.size() + 1)));
    }
    for (size_t at = first_record; at + header_size <= bytes.size();) {
        const size_t size = load(base + at) & 0xffffff;
        if (size < header_size || size % unit != 0 || size > bytes.size() - at) {
            break;
        }
        store(base + at + 4, record_check(base + at, size));
        at += size;
    }
}

void check(const std::string &bytes)
{
    const auto read = read_recording(bytes);
    if (const auto *error = std::get_if<std::string>(&read)) {
        promise(!error->empty(), "what cannot be read says why");
        return;
    }
    const auto &recording = std::get<Recording>(read);
    promise(recording.gap <= recording.records.size(), "a gap is between records");
    for (const Record &record : recording.records) {
        const std::string line = record.line();
        promise(line.find('\n') == line.npos, "a record is one line");
        promise(record.kind != Kind::call || line.find(" = ") != line.npos, "a call has a result");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes{reinterpret_cast<const char *>(data), size};
    check(bytes);
    bytes.resize(padded(std::max(size, first_record)));
    put_right(bytes);
    check(bytes);
    return 0;
}
