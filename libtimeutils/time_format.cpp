#include "libtimeutils/time_format.h"

#include <cstdint>
#include <optional>
#include <sstream>
#include <string_view>

#include "libtimeutils/errors.h"

// GCC 12 sees a false "may be used uninitialized" inside date's parser; the state of this
// pragma must cover both the header and the instantiation below.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <date/date.h>

namespace corvanis::monitoring_modules::libtimeutils {

static_assert(std::is_same_v<time_point::duration, std::chrono::nanoseconds>,
              "the persisted texts carry nanoseconds");

namespace {

bool ends_with(std::string_view text, std::string_view tail) {
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

// date's parser knows offsets only as digits; ISO 8601 writes the zero offset as "Z".
std::string with_numeric_zero_offset(const std::string& text, const std::string& format_text) {
    if (!ends_with(text, "Z")) return text;
    const auto stem = text.substr(0, text.size() - 1);
    if (ends_with(format_text, "%Oz") || ends_with(format_text, "%Ez")) return stem + "+00:00";
    if (ends_with(format_text, "%z")) return stem + "+0000";
    return text;
}

// The range of time_point ends within a second, so neither a check in whole seconds nor
// the plain sum in nanoseconds would do; `fraction` lies in [0, 1 s).
std::optional<time_point> to_time_point(std::chrono::seconds whole,
                                        std::chrono::nanoseconds fraction) {
    std::int64_t seconds = whole.count();
    std::int64_t nanoseconds = fraction.count();
    if (seconds < 0 && nanoseconds > 0) {
        seconds += 1;
        nanoseconds -= 1'000'000'000;
    }
    std::int64_t count = 0;
    if (__builtin_mul_overflow(seconds, std::int64_t{1'000'000'000}, &count) ||
        __builtin_add_overflow(count, nanoseconds, &count)) {
        return std::nullopt;
    }
    return time_point{std::chrono::nanoseconds{count}};
}

}  // namespace

// date's own formatting of a sys_time overflows within the first day of the range: it
// converts the day back to nanoseconds. This splits the count without that step.
std::string format(const std::string& format_text, time_point time) {
    using std::chrono::nanoseconds;
    constexpr std::int64_t nanoseconds_per_day = 86'400'000'000'000;
    const std::int64_t count = time.time_since_epoch().count();
    std::int64_t day = count / nanoseconds_per_day;
    std::int64_t time_of_day = count % nanoseconds_per_day;
    if (time_of_day < 0) {
        time_of_day += nanoseconds_per_day;
        day -= 1;
    }
    const date::fields<nanoseconds> fields{date::year_month_day{date::sys_days{date::days{day}}},
                                           date::hh_mm_ss<nanoseconds>{nanoseconds{time_of_day}}};
    const std::string zone = "UTC";
    const std::chrono::seconds offset{0};
    std::ostringstream out;
    date::to_stream(out, format_text.c_str(), fields, &zone, &offset);
    return out.str();
}

time_point parse(const std::string& text, const std::string& format_text) {
    using namespace std::chrono;
    std::istringstream in(with_numeric_zero_offset(text, format_text));
    date::fields<nanoseconds> fields{};
    fields.has_tod = true;
    minutes offset{0};
    date::from_stream(in, format_text.c_str(), fields, static_cast<std::string*>(nullptr), &offset);
    const bool has_date = unsigned(fields.ymd.month()) != 0 && unsigned(fields.ymd.day()) != 0;
    if (in.fail() || in.peek() != std::istringstream::traits_type::eof() || !has_date) {
        throw exceptions::could_not_parse(messages::could_not_parse()(text, format_text));
    }
    if (!fields.ymd.ok() || !fields.tod.in_conventional_range()) {
        throw exceptions::invalid_date(messages::invalid_date()(text));
    }
    const auto whole =
        date::sys_days(fields.ymd) - offset + floor<seconds>(fields.tod.to_duration());
    const auto instant = to_time_point(whole.time_since_epoch(), fields.tod.subseconds());
    if (!instant) throw exceptions::invalid_date(messages::invalid_date()(text));
    return *instant;
}

}  // namespace corvanis::monitoring_modules::libtimeutils

#pragma GCC diagnostic pop
