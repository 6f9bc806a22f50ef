#include "mqtt/sensors/base64.h"

#include <array>
#include <cstdint>

namespace corvanis::monitoring_modules::mqtt::sensors {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::int8_t invalid = -1;

constexpr std::array<std::int8_t, 256> make_decode_table() {
    std::array<std::int8_t, 256> table{};
    table.fill(invalid);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return table;
}

constexpr auto decode_table = make_decode_table();

}  // namespace

std::string base64_encode(std::span<const char> bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    const auto byte = [&](std::size_t k) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[k]));
    };
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        out += alphabet[group >> 18 & 0x3f];
        out += alphabet[group >> 12 & 0x3f];
        out += alphabet[group >> 6 & 0x3f];
        out += alphabet[group & 0x3f];
    }
    const std::size_t rest = bytes.size() - i;
    if (rest != 0) {
        const std::uint32_t group = byte(i) << 16 | (rest == 2 ? byte(i + 1) << 8 : 0);
        out += alphabet[group >> 18 & 0x3f];
        out += alphabet[group >> 12 & 0x3f];
        out += rest == 2 ? alphabet[group >> 6 & 0x3f] : '=';
        out += '=';
    }
    return out;
}

std::optional<std::vector<char>> base64_decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;

    std::vector<char> out;
    out.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int bit_count = 0;
    for (std::size_t i = 0; i < text.size() - padding; ++i) {
        const auto value = decode_table[static_cast<unsigned char>(text[i])];
        if (value == invalid) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        bit_count += 6;
        if (bit_count >= 8) {
            bit_count -= 8;
            out.push_back(static_cast<char>(bits >> bit_count & 0xff));
        }
    }
    // Canonical text only: the bits that the padding cuts off must be zero.
    if ((bits & ((1u << bit_count) - 1)) != 0) return std::nullopt;
    return out;
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
