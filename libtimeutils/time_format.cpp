#include "libtimeutils/time_format.h"

#include <cstdint>
#include <optional>
#include <sstream>
#include <string_view>

#include "libtimeutils/errors.h"

// GCC 12 sees a false "may be used uninitialized" inside date's parser; the state of this
// pragma must cover both the header and the instantiation below.
#pragma GCC diagnostic push
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <date/date.h>

namespace corvanis::monitoring_modules::libtimeutils {

static_assert(std::is_same_v<time_point::duration, std::chrono::nanoseconds>,
              "the persisted texts carry nanoseconds");

namespace {

bool ends_with(std::string_view text, std::string_view tail) {
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

bool digits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// date reads up to twelve characters of seconds and converts them to nanoseconds before any
// range check, which overflows past nine integer digits (found by fuzzing). No field of a
// valid time holds more than nine digits in a row (a fraction stops at nanoseconds).
bool has_long_digit_run(std::string_view text) {
    std::size_t run = 0;
    for (const char c : text) {
        run = (c >= '0' && c <= '9') ? run + 1 : 0;
        if (run > 9) return true;
    }
    return false;
}

// A text and format with a trailing offset field taken off, and that offset.
struct offset_split {
    std::string text;
    std::string format_text;
    std::chrono::minutes offset{0};
};

// date's offset reader negates its "no offset" marker when a sign is followed by no digits
// (undefined behaviour, found by fuzzing), so an offset that ends the format is read here:
// "Z", or a sign and two hour digits with, optionally, two minute digits (after a colon for
// "%Oz" and "%Ez"). Empty when the text does not end in such an offset.
std::optional<offset_split> split_trailing_offset(const std::string& text,
                                                  const std::string& format_text) {
    std::size_t field = 0;
    bool colon = false;
    if (ends_with(format_text, "%Oz") || ends_with(format_text, "%Ez")) {
        field = 3;
        colon = true;
    } else if (ends_with(format_text, "%z")) {
        field = 2;
    } else {
        return offset_split{text, format_text};
    }
    offset_split out{"", format_text.substr(0, format_text.size() - field)};
    if (ends_with(text, "Z")) {
        out.text = text.substr(0, text.size() - 1);
        return out;
    }
    const std::string_view all(text);
    for (const std::size_t length : {colon ? 6u : 5u, 3u}) {
        if (all.size() < length) continue;
        const auto tail = all.substr(all.size() - length);
        if (tail[0] != '+' && tail[0] != '-') continue;
        const auto hours = tail.substr(1, 2);
        const auto minutes = length == 3 ? std::string_view("00") : tail.substr(colon ? 4 : 3, 2);
        if (!digits(hours) || !digits(minutes) || (length > 3 && colon && tail[3] != ':')) continue;
        const int value = (hours[0] - '0') * 600 + (hours[1] - '0') * 60 + (minutes[0] - '0') * 10 +
                          (minutes[1] - '0');
        out.offset = std::chrono::minutes{tail[0] == '-' ? -value : value};
        out.text = std::string(all.substr(0, all.size() - length));
        return out;
    }
    return std::nullopt;
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
    const auto split = split_trailing_offset(text, format_text);
    if (!split || has_long_digit_run(text))
        throw exceptions::could_not_parse(messages::could_not_parse()(text, format_text));
    std::istringstream in(split->text);
    date::fields<nanoseconds> fields{};
    fields.has_tod = true;
    minutes offset = split->offset;
    date::from_stream(in, split->format_text.c_str(), fields, static_cast<std::string*>(nullptr),
                      &offset);
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
