#include "frame.h"

#include <stdexcept>

namespace lab {
namespace {

void put_u32(std::string &out, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out += static_cast<char>((value >> shift) & 0xff);
    }
}

uint32_t get_u32(const std::string &bytes, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; i++) {
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    }
    return value;
}

} // namespace

std::string frame_bytes(FrameType type, uint32_t id, std::string_view payload)
{
    std::string out;
    out.reserve(frame_header_size + payload.size());
    put_u32(out, static_cast<uint32_t>(payload.size()));
    put_u32(out, id);
    out += static_cast<char>(type);
    out += payload;
    return out;
}

std::optional<Frame> FrameReader::next()
{
    if (bytes_.size() - used_ < frame_header_size) {
        return std::nullopt;
    }
    size_t length = get_u32(bytes_, used_);
    if (length > frame_payload_max) {
        throw std::runtime_error("control channel: frame of " + std::to_string(length) + " bytes");
    }
    if (bytes_.size() - used_ < frame_header_size + length) {
        return std::nullopt;
    }
    Frame frame;
    frame.id = get_u32(bytes_, used_ + 4);
    frame.type = static_cast<FrameType>(bytes_[used_ + 8]);
    frame.payload = bytes_.substr(used_ + frame_header_size, length);
    used_ += frame_header_size + length;
    if (used_ == bytes_.size() || used_ > frame_payload_max) {
        bytes_.erase(0, used_);
        used_ = 0;
    }
    return frame;
}

std::vector<std::string> split_words(std::string_view text, char separator)
{
    std::vector<std::string> words;
    for (;;) {
        size_t end = text.find(separator);
        words.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return words;
        }
        text.remove_prefix(end + 1);
    }
}

} // namespace lab
