#pragma once

#include <chrono>
#include <string>

namespace corvanis::monitoring_modules::libtimeutils {

// Wall-clock time, always meant as UTC, with nanosecond resolution (years 1677 to 2262).
using time_point = std::chrono::system_clock::time_point;

// ISO 8601 with nine fraction digits and the offset written "+00:00".
inline constexpr const char* iso8601_format = "%FT%T%Oz";

// `time` as UTC text in a strftime-like format of the date library: "%Z" is "UTC", "%z"
// "+0000" and "%Oz" "+00:00"; "%T" and "%S" carry nine fraction digits.
std::string format(const std::string& format_text, time_point time);

// The instant `text` names in `format_text`, which must cover all of it. Fraction digits
// beyond nanoseconds are refused; an offset is subtracted; when the format ends in an
// offset field, a final "Z" stands for the zero offset.
// Throws exceptions::could_not_parse when the text does not follow the format, and
// exceptions::invalid_date when it does but names a day or time of day that does not exist
// (February 30, 24:00:00) or an instant outside the range of time_point.
time_point parse(const std::string& text, const std::string& format_text);

}  // namespace corvanis::monitoring_modules::libtimeutils
