#include "libstringutils/utf8.h"

#include <gtest/gtest.h>

namespace su = corvanis::monitoring_modules::libstringutils;

namespace {

constexpr const char* fffd = "\xEF\xBF\xBD";

struct utf8_case {
    std::string input;
    std::size_t length;    // code points
    std::string repaired;  // to_valid_utf8
};

std::string r(int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += fffd;
    return out;
}

// Well-formed text of every sequence length, and each kind of ill-formed input: stray
// continuation bytes, truncated sequences (one U+FFFD for the whole maximal subpart),
// overlong forms, surrogates, code points above U+10FFFF and bytes that never occur.
TEST(utf8, counts_and_repairs_by_maximal_subparts) {
    const std::vector<utf8_case> cases = {
        {"", 0, ""},
        {"plain ascii", 11, "plain ascii"},
        {"\xC2\xB5g/m\xC2\xB3", 5, "\xC2\xB5g/m\xC2\xB3"},
        {"\xE2\x80\x93", 1, "\xE2\x80\x93"},
        {"\xF0\x9F\x98\x80", 1, "\xF0\x9F\x98\x80"},
        {"\xF4\x8F\xBF\xBF", 1, "\xF4\x8F\xBF\xBF"},
        {"a\x80z", 3, "a" + r(1) + "z"},
        {"\xE2\x80", 1, r(1)},
        {"\xE2\x80z", 2, r(1) + "z"},
        {"\xF0\x9F\x98", 1, r(1)},
        {"\xC0\xAF", 2, r(2)},
        {"\xE0\x80\xAF", 3, r(3)},
        {"\xED\xA0\x80", 3, r(3)},
        {"\xF4\x90\x80\x80", 4, r(4)},
        {"\xF5\xFF", 2, r(2)},
        {std::string("nul\0in", 6), 6, std::string("nul\0in", 6)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.input));
        EXPECT_EQ(su::utf8_length(c.input), c.length);
        EXPECT_EQ(su::to_valid_utf8(c.input), c.repaired);
        EXPECT_EQ(su::is_valid_utf8(c.input), c.input == c.repaired);
        EXPECT_TRUE(su::is_valid_utf8(su::to_valid_utf8(c.input)));
    }
}

TEST(utf8, prefixes_end_on_whole_code_points) {
    const std::string unit = "\xC2\xB5g/m\xC2\xB3 (Feinstaub PM2,5 \xE2\x80\x93 Mittel)";
    EXPECT_EQ(su::utf8_length(unit), 32u);
    EXPECT_EQ(unit.size(), 36u);
    EXPECT_EQ(su::utf8_prefix(unit, 1), "\xC2\xB5");
    EXPECT_EQ(su::utf8_prefix(unit, 5), "\xC2\xB5g/m\xC2\xB3");
    EXPECT_EQ(su::utf8_prefix(unit, 100), unit);
    EXPECT_EQ(su::utf8_prefix(unit, 0), "");
}

}  // namespace
