#include "recording.h"

#include "attribute.h"
#include "message.h"
#include "text.h"

#include <libubus.h>
#include <memory>
#include <optional>

namespace seam {

using namespace format;

namespace {

constexpr int deepest = 16;

const uint8_t *bytes_of(std::string_view text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

std::string at_place(size_t place)
{
    return " at byte " + std::to_string(place);
}

// The values of one record, in order; nothing where they are not well formed.
class Values {
public:
    explicit Values(std::string_view rest) : rest_{rest} {}

    bool read(Record &record)
    {
        bool has_results = false;
        bool has_hidden = false;
        while (!rest_.empty()) {
            Value value{static_cast<Tag>(rest_[0]), {}};
            rest_.remove_prefix(1);
            if (value.tag == Tag::end) {
                return is_rest_empty() && finish(record, has_results, has_hidden);
            }
            if (value.tag == Tag::result && !has_results && !has_hidden) {
                has_results = true;
                record.results = record.values.size();
            } else if (value.tag == Tag::hidden && !has_hidden) {
                has_hidden = true;
                record.hidden = record.values.size();
            } else if (!read_value(value)) {
                return false;
            } else if (value.tag == Tag::prefix) {
                record.prefix = value.text;
            } else {
                record.values.push_back(std::move(value));
            }
        }
        return finish(record, has_results, has_hidden);
    }

private:
    bool is_rest_empty() const { return rest_.find_first_not_of('\0') == rest_.npos; }

    static bool finish(Record &record, bool has_results, bool has_hidden)
    {
        record.hidden = has_hidden ? record.hidden : record.values.size();
        record.results = has_results ? record.results : record.hidden;
        return true;
    }

    bool take(size_t size, std::string &text)
    {
        if (size > rest_.size()) {
            return false;
        }
        text = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return true;
    }

    bool take_number(size_t size, long long &number)
    {
        uint8_t bytes[8] = {};
        if (size > rest_.size()) {
            return false;
        }
        memcpy(bytes, rest_.data(), size);
        rest_.remove_prefix(size);
        number = static_cast<long long>(load64(bytes));
        return true;
    }

    bool read_value(Value &value)
    {
        long long number = 0;
        switch (value.tag) {
        case Tag::null:
            return true;
        case Tag::text:
        case Tag::word:
        case Tag::prefix:
        case Tag::message:
            return take_number(2, number) && take(static_cast<size_t>(number), value.text);
        case Tag::number:
            return take_number(8, value.number);
        case Tag::hex:
            if (!take_number(1, number) || number > 8) {
                return false;
            }
            value.digits = static_cast<int>(number);
            return take_number(4, value.number);
        case Tag::mac:
            return take(6, value.text);
        case Tag::long_text:
            return take_number(4, value.number);
        default:
            return false;
        }
    }

    std::string_view rest_;
};

// What each kind must hold to be shown and played.
bool is_sound(const Record &record)
{
    const std::vector<Value> &values = record.values;
    const auto is = [&](size_t at, Tag tag) { return at < values.size() && values[at].tag == tag; };
    switch (record.kind) {
    case Kind::call:
        return is(0, Tag::text) && record.results > 0 && is(record.results, Tag::number);
    case Kind::say:
        return is(0, Tag::text) && record.results > 0;
    case Kind::walk:
    case Kind::section:
    case Kind::option:
    case Kind::file:
        return record.hidden >= (record.kind == Kind::section ? 1 : record.kind == Kind::option ? 3 : 2);
    case Kind::request:
        return is(0, Tag::text) && is(1, Tag::text) && (is(2, Tag::message) || is(2, Tag::long_text));
    case Kind::link:
    case Kind::address:
        return is(0, Tag::number) && is(1, Tag::number);
    case Kind::walk_end:
    case Kind::status:
    case Kind::returned:
    case Kind::debug:
    case Kind::left_out:
        return is(0, Tag::number);
    case Kind::wrap:
    case Kind::timer:
    case Kind::over:
        return values.empty();
    }
    return false;
}

bool is_list_sound(const char *data, size_t length, int depth)
{
    Attribute attribute{};
    while (length != 0) {
        if (!read_attribute(data, length, &attribute) || attribute.padded() > length) {
            return false;
        }
        const bool is_list = attribute.type == BLOBMSG_TYPE_TABLE || attribute.type == BLOBMSG_TYPE_ARRAY;
        const size_t head = attribute.head;
        const size_t size = attribute.length - head;
        const size_t least = attribute.type == BLOBMSG_TYPE_INT64   ? 8
                             : attribute.type == BLOBMSG_TYPE_INT32 ? 4
                             : attribute.type == BLOBMSG_TYPE_INT16 ? 2
                             : attribute.type == BLOBMSG_TYPE_INT8  ? 1
                                                                    : 0;
        if (attribute.name == nullptr || size < least ||
            (is_list && (depth == deepest || !is_list_sound(data + head, size, depth + 1)))) {
            return false;
        }
        data += attribute.padded();
        length -= attribute.padded();
    }
    return true;
}

std::string shown_message(const std::string &bytes)
{
    Attribute whole{};
    if (!read_attribute(bytes.data(), bytes.size(), &whole) || whole.length != bytes.size() ||
        !is_list_sound(bytes.data() + least_head, bytes.size() - least_head, 0)) {
        return "a message that is not well formed";
    }
    const auto copy = std::make_unique<uint64_t[]>(bytes.size() / sizeof(uint64_t) + 1);
    memcpy(copy.get(), bytes.data(), bytes.size());
    return message_text(reinterpret_cast<blob_attr *>(copy.get()));
}

std::string shown(const Value &value)
{
    switch (value.tag) {
    case Tag::null:
        return "null";
    case Tag::text:
        return quote(value.text);
    case Tag::word:
        return value.text;
    case Tag::message:
        return shown_message(value.text);
    case Tag::hex:
        return hex(static_cast<uint32_t>(value.number), value.digits);
    case Tag::mac:
        return mac_text(bytes_of(value.text));
    case Tag::long_text:
        return "a text of " + std::to_string(value.number) + " bytes";
    default:
        return std::to_string(value.number);
    }
}

std::string joined(const std::vector<Value> &values, size_t from, size_t to, const char *between)
{
    std::string out;
    for (size_t i = from; i < to; ++i) {
        out += (i == from ? "" : between) + shown(values[i]);
    }
    return out;
}

// The records from one place to another, up to `to`, which may lie before it.
class Ring {
public:
    Ring(std::string_view bytes, std::vector<Record> &records) : bytes_{bytes}, records_{records} {}

    // Why they cannot be read; empty when they can.
    std::string read(size_t from, size_t to, size_t ring)
    {
        bool turned = from <= to;
        for (size_t at = from; at != to;) {
            const size_t room = (turned ? to : bytes_.size()) - at;
            if (!turned && room < header_size) {
                turned = true;
                at = ring;
                continue;
            }
            if (std::string error = read_one(at, room); !error.empty()) {
                return error;
            }
            if (records_.back().kind != Kind::wrap) {
                at += size_;
                continue;
            }
            records_.pop_back();
            if (turned) {
                return "damaged: it turns twice" + at_place(at);
            }
            turned = true;
            at = ring;
        }
        return {};
    }

private:
    std::string read_one(size_t at, size_t room)
    {
        const uint8_t *record = bytes_of(bytes_) + at;
        size_ = room < header_size ? 0 : load(record) & 0xffffff;
        if (size_ < header_size || size_ > room || size_ % unit != 0) {
            return "damaged: a record's length" + at_place(at);
        }
        if (load(record + 4) != record_check(record, size_)) {
            return "damaged: a record does not match its check" + at_place(at);
        }
        Record out{static_cast<Kind>(load(record) >> 24), load64(record + 8), at, {}, {}};
        if (!Values(bytes_.substr(at + header_size, size_ - header_size)).read(out) || !is_sound(out)) {
            return "damaged: a record makes no sense" + at_place(at);
        }
        records_.push_back(std::move(out));
        return {};
    }

    std::string_view bytes_;
    std::vector<Record> &records_;
    size_t size_ = 0;
};

std::string head_error(std::string_view bytes)
{
    if (bytes.empty()) {
        return "empty";
    }
    const size_t compared = std::min(bytes.size(), sizeof(magic));
    if (memcmp(bytes.data(), magic, compared) != 0) {
        return "no recording";
    }
    if (bytes.size() < first_record) {
        return "cut: " + std::to_string(bytes.size()) + " bytes are not even its head";
    }
    const uint8_t *head = bytes_of(bytes);
    if (load(head + at_version) != version) {
        return "of version " + std::to_string(load(head + at_version)) + ", not " + std::to_string(version);
    }
    if (load(head + at_check) != check_of(head, at_check) ||
        bytes.substr(at_zeros, at_start_end - at_zeros).find_first_not_of('\0') != bytes.npos) {
        return "damaged: its head does not match its check";
    }
    if (load(head + at_size) != bytes.size()) {
        return "cut: " + std::to_string(bytes.size()) + " of " + std::to_string(load(head + at_size)) +
               " bytes";
    }
    return {};
}

} // namespace

std::string Record::out() const
{
    return results + 1 < hidden ? joined(values, results + 1, hidden, " ") : "";
}

std::string Record::hidden_text() const
{
    return joined(values, hidden, values.size(), " ");
}

std::string Record::call() const
{
    return name() + "(" + joined(values, 1, results, ", ") + ")";
}

std::string Record::line() const
{
    switch (kind) {
    case Kind::call:
        return prefix + call() + " = " + std::to_string(result()) + (out().empty() ? "" : " -> " + out());
    case Kind::say:
        return prefix + call();
    case Kind::walk:
        return "ucilib_foreach_section(" + joined(values, 0, 2, ", ") + ") {";
    case Kind::walk_end:
        return "} = " + std::to_string(values[0].number);
    case Kind::option:
        return "ucilib_lookup_option_string(" + joined(values, 0, 3, ", ") + ")";
    case Kind::request:
        return "> call " + values[0].text + " " + values[1].text + " " + shown(values[2]);
    case Kind::status:
        return "status " + std::to_string(values[0].number);
    case Kind::link:
        return "> link " + std::to_string(values[0].number) + (values[1].number == 0 ? " down" : " up");
    case Kind::address:
        return "> address " + address_text(static_cast<uint32_t>(values[1].number));
    case Kind::timer:
        return "> timer";
    case Kind::returned:
        return "returned " + std::to_string(values[0].number);
    default:
        return {};
    }
}

bool Record::is_event() const
{
    return kind == Kind::request || kind == Kind::link || kind == Kind::address || kind == Kind::timer;
}

std::string address_text(uint32_t address)
{
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        out += std::to_string(address >> shift & 0xff) + (shift == 0 ? "" : ".");
    }
    return out;
}

std::variant<Recording, std::string> read_recording(std::string_view bytes)
{
    if (std::string error = head_error(bytes); !error.empty()) {
        return error;
    }
    const uint8_t *head = bytes_of(bytes);
    const uint32_t marks[] = {load(head + at_start_end), load(head + at_tail), load(head + at_end),
                              load(head + at_lost)};
    for (const uint32_t mark : marks) {
        if (!is_mark(mark) || place_of(mark) > bytes.size()) {
            return "damaged: a mark of its head";
        }
    }
    const size_t start_end = place_of(marks[0]);
    const size_t ring = start_end == 0 ? first_record : start_end;
    const size_t tail = place_of(marks[1]);
    const size_t end = place_of(marks[2]);
    const bool is_overwritten = place_of(marks[3]) != 0;
    if (ring < first_record || tail < ring || end < ring || (start_end == 0 && tail != ring)) {
        return "damaged: the marks of its head contradict each other";
    }
    Recording out;
    out.begin_us = load64(head + at_begin);
    out.with_secrets = (load(head + at_flags) & flag_secrets) != 0;
    Ring reader(bytes, out.records);
    if (std::string error = reader.read(first_record, ring, ring); !error.empty()) {
        return error;
    }
    out.gap = out.records.size();
    if (std::string error = reader.read(tail, end, ring); !error.empty()) {
        return error;
    }
    out.gap = is_overwritten ? out.gap : out.records.size();
    return out;
}

} // namespace seam
