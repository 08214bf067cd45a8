#pragma once
// The control channel's frames, the same bytes on a socket and on a virtual serial port.
//
// A frame is: payload length (32 bit, big-endian), request id (32 bit, big-endian), type (8 bit), payload.
// Towards the board a request is begun by Exec (NUL-separated: host, words of the command) and goes on with
// input (empty: end of input) and Kill (one byte: signal number). Up (NUL-separated: lab folder, folder of
// programs) and Down raise and end the board. From the board come output, errors and, once and last for each
// request, Exit with one of the texts "exit N", "signal N", "failed REASON". Id 0 belongs to nobody: Note
// carries a line for the operator's log.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

enum class FrameType : uint8_t {
    exec = 1,
    input = 2,
    kill = 3,
    up = 4,
    down = 5,
    output = 16,
    errors = 17,
    exit = 18,
    note = 19,
};

struct Frame {
    FrameType type{};
    uint32_t id = 0;
    std::string payload;
};

constexpr size_t frame_header_size = 9;
constexpr size_t frame_payload_max = 1U << 20;

std::string frame_bytes(FrameType type, uint32_t id, std::string_view payload);

// Cuts a byte stream into frames.
class FrameReader {
public:
    void feed(const char *data, size_t size) { bytes_.append(data, size); }
    // The next whole frame, or nothing yet. Throws std::runtime_error when the stream cannot be a channel.
    std::optional<Frame> next();

private:
    std::string bytes_;
    size_t used_ = 0;
};

std::vector<std::string> split_words(std::string_view text, char separator);

} // namespace lab
