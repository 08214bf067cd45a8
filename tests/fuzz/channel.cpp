// Bytes of the lab's control channel. However a stream is cut, the same frames come out of it, and written
// again they are the same bytes.
//
// The first byte says how the stream is cut into pieces.
#include "frame.h"
#include "input.h"

#include <stdexcept>

namespace {

using fuzz::promise;

struct Outcome {
    std::string bytes; // of all frames, written again
    bool refused = false;
    bool operator==(const Outcome &) const = default;
};

Outcome read_in_pieces(std::string_view stream, size_t piece)
{
    Outcome outcome;
    lab::FrameReader reader;
    try {
        while (!stream.empty()) {
            const std::string_view part = stream.substr(0, piece);
            reader.feed(part.data(), part.size());
            stream.remove_prefix(part.size());
            while (const std::optional<lab::Frame> frame = reader.next()) {
                outcome.bytes += lab::frame_bytes(frame->type, frame->id, frame->payload);
                lab::split_words(frame->payload, '\0');
            }
        }
    } catch (const std::runtime_error &) {
        outcome.refused = true;
    }
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const size_t piece = 1 + input.u8() % 32;
    const std::string_view stream = input.rest();
    const Outcome whole = read_in_pieces(stream, stream.size() + 1);
    promise(stream.substr(0, whole.bytes.size()) == whole.bytes, "frames written again are the same bytes");
    promise(whole == read_in_pieces(stream, piece), "pieces make no difference");
    return 0;
}
