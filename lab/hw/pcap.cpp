#include "pcap.h"

#include <array>
#include <cstring>
#include <ctime>

namespace lab {

namespace {

template <size_t N> std::string bytes(const std::array<uint32_t, N> &words)
{
    std::string text(sizeof words, '\0');
    memcpy(text.data(), words.data(), sizeof words);
    return text;
}

} // namespace

std::string pcap_header()
{
    constexpr uint32_t magic = 0xa1b2c3d4;
    constexpr uint16_t version[2] = {2, 4};
    constexpr uint32_t longest = 65535;
    constexpr uint32_t ethernet = 1;
    uint32_t version_word = 0;
    memcpy(&version_word, version, sizeof version_word);
    return bytes(std::array<uint32_t, 6>{magic, version_word, 0, 0, longest, ethernet});
}

std::string pcap_record(std::span<const uint8_t> frame)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto length = static_cast<uint32_t>(frame.size());
    std::string record = bytes(std::array<uint32_t, 4>{
        static_cast<uint32_t>(now.tv_sec), static_cast<uint32_t>(now.tv_nsec / 1000), length, length});
    record.append(reinterpret_cast<const char *>(frame.data()), frame.size());
    return record;
}

} // namespace lab
