#include "libtimeutils/time_format.h"

#include <gtest/gtest.h>

#include "libtimeutils/errors.h"

namespace tu = corvanis::monitoring_modules::libtimeutils;
namespace i18n = corvanis::monitoring_modules::libi18n;
using std::chrono::nanoseconds;

namespace {

tu::time_point at(std::int64_t ns) {
    return tu::time_point{nanoseconds{ns}};
}

TEST(time_format, formats_utc_with_nanoseconds_and_parses_it_back) {
    const struct {
        tu::time_point time;
        const char* format;
        const char* text;
    } cases[] = {
        {at(0), tu::iso8601_format, "1970-01-01T00:00:00.000000000+00:00"},
        {at(1'700'000'000'123'456'789), tu::iso8601_format, "2023-11-14T22:13:20.123456789+00:00"},
        {at(-1), tu::iso8601_format, "1969-12-31T23:59:59.999999999+00:00"},
        {tu::time_point::max(), tu::iso8601_format, "2262-04-11T23:47:16.854775807+00:00"},
        {tu::time_point::min(), tu::iso8601_format, "1677-09-21T00:12:43.145224192+00:00"},
        {at(0), "%F %H:%M %Z %z", "1970-01-01 00:00 UTC +0000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(tu::format(c.format, c.time), c.text);
        if (std::string_view(c.format) == tu::iso8601_format) {
            EXPECT_EQ(tu::parse(c.text, c.format), c.time);
        }
    }
}

TEST(time_format, parses_offsets_short_fractions_and_a_final_z) {
    const struct {
        const char* text;
        const char* format;
        std::int64_t ns;
    } cases[] = {
        {"1970-01-01T00:00:00+00:00", tu::iso8601_format, 0},
        {"1970-01-01T00:00:00.5+00:00", tu::iso8601_format, 500'000'000},
        {"1970-01-01T02:00:00.000000001+02:00", tu::iso8601_format, 1},
        {"1969-12-31T19:30:00-04:30", tu::iso8601_format, 0},
        {"1970-01-01T00:00:01.25Z", tu::iso8601_format, 1'250'000'000},
        {"1970-01-01 00:00:03Z", "%F %T%z", 3'000'000'000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(tu::parse(c.text, c.format), at(c.ns));
    }
}

TEST(time_format, refuses_texts_off_the_format_and_dates_that_do_not_exist) {
    const std::string could_not_parse = "libtimeutils.error.could_not_parse";
    const std::string invalid_date = "libtimeutils.error.invalid_date";
    const struct {
        std::string text;
        std::string key;
    } cases[] = {
        {"", could_not_parse},
        {" 2023-01-01T10:00:00+00:00", could_not_parse},
        {"2023-01-01T10:00:00+00:00 ", could_not_parse},
        {"2023-01-01T10:00:00+0000", could_not_parse},
        {"2023-01-01T10:00:00", could_not_parse},
        {"2023-01-01T10:00:00.1234567891+00:00", could_not_parse},
        {"2023-01-01T10:00:00z", could_not_parse},
        // Each once undefined behaviour inside the date parser:
        {"2023-01-01T10:", could_not_parse},                     // ends before the seconds
        {"2023-01-01T10:00:5555555555+00:00", could_not_parse},  // seconds beyond 64 bits of ns
        {"2023-01-01T10:00:00-@0:00", could_not_parse},          // a sign without digits
        {"2023-02-29T10:00:00+00:00", invalid_date},
        {"2023-13-01T10:00:00+00:00", invalid_date},
        {"2023-01-01T24:00:00+00:00", invalid_date},
        {"2023-01-01T10:00:60+00:00", invalid_date},
        {"2262-04-11T23:47:16.854775808+00:00", invalid_date},
        {"1677-09-21T00:12:43.145224191+00:00", invalid_date},
        {"9999-12-31T00:00:00+00:00", invalid_date},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        try {
            tu::parse(c.text, tu::iso8601_format);
            ADD_FAILURE() << "no exception";
        } catch (const tu::exceptions::exception& e) {
            EXPECT_EQ(e.message().key(), c.key);
            const auto expected_args = c.key == invalid_date
                                           ? std::vector<std::string>{c.text}
                                           : std::vector<std::string>{c.text, tu::iso8601_format};
            EXPECT_EQ(e.message().args(), expected_args);
        }
    }
}

TEST(time_format, a_format_without_a_date_cannot_name_an_instant) {
    EXPECT_THROW(tu::parse("10:00:00", "%T"), tu::exceptions::could_not_parse);
}

}  // namespace
