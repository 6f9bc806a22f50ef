#include "libstringutils/utf8.h"

namespace corvanis::monitoring_modules::libstringutils {

namespace {

// Bytes taken by the sequence at the start of `text` and whether it is well formed; an
// ill-formed one covers its maximal subpart (at least one byte).
struct sequence {
    std::size_t size;
    bool valid;
};

sequence next_sequence(std::string_view text) noexcept {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {1, true};
    std::size_t size = 0;
    unsigned char low = 0x80;  // range of the second byte; later ones are 80..BF
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
        if (lead == 0xE0) low = 0xA0;   // overlong
        if (lead == 0xED) high = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
        if (lead == 0xF0) low = 0x90;   // overlong
        if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
    } else {
        return {1, false};
    }
    for (std::size_t i = 1; i < size; ++i) {
        if (i >= text.size()) return {i, false};
        const unsigned char b = byte(i);
        if (i == 1 ? (b < low || b > high) : (b < 0x80 || b > 0xBF)) return {i, false};
    }
    return {size, true};
}

}  // namespace

bool is_valid_utf8(std::string_view text) noexcept {
    while (!text.empty()) {
        const auto s = next_sequence(text);
        if (!s.valid) return false;
        text.remove_prefix(s.size);
    }
    return true;
}

std::size_t utf8_length(std::string_view text) noexcept {
    std::size_t count = 0;
    for (; !text.empty(); ++count) text.remove_prefix(next_sequence(text).size);
    return count;
}

std::string to_valid_utf8(std::string_view text) {
    if (is_valid_utf8(text)) return std::string(text);
    std::string out;
    out.reserve(text.size() + 8);
    while (!text.empty()) {
        const auto s = next_sequence(text);
        if (s.valid) {
            out.append(text.substr(0, s.size));
        } else {
            out.append("\xEF\xBF\xBD");
        }
        text.remove_prefix(s.size);
    }
    return out;
}

std::string_view utf8_prefix(std::string_view text, std::size_t max_code_points) noexcept {
    std::size_t bytes = 0;
    for (std::size_t n = 0; n < max_code_points && bytes < text.size(); ++n) {
        bytes += next_sequence(text.substr(bytes)).size;
    }
    return text.substr(0, bytes);
}

}  // namespace corvanis::monitoring_modules::libstringutils
