// Topic filter validation and matching against a plain reference matcher: "+" is one level
// and "#" the rest of the topic, each of the characters [a-zA-Z0-9 _.-] ("/" too for "#");
// every other character of the filter stands for itself.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "mqtt/topic_subscription.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;

namespace {

bool level_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ' ||
           c == '_' || c == '.' || c == '-';
}

// Text MQTT can carry at all: at most 65,535 bytes of UTF-8 without NUL.
bool carriable(std::string_view t) {
    if (t.size() > 65535 || t.find('\0') != std::string_view::npos) return false;
    for (std::size_t i = 0; i < t.size();) {
        const auto c = static_cast<unsigned char>(t[i]);
        const std::size_t n = c < 0x80         ? 1
                              : (c >> 5) == 6  ? 2
                              : (c >> 4) == 14 ? 3
                              : (c >> 3) == 30 ? 4
                                               : 0;
        if (n == 0 || i + n > t.size()) return false;
        std::uint32_t cp = n == 1 ? c : c & (0x7f >> n);
        for (std::size_t k = 1; k < n; ++k) {
            const auto d = static_cast<unsigned char>(t[i + k]);
            if ((d >> 6) != 2) return false;
            cp = (cp << 6) | (d & 0x3f);
        }
        const std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (cp < least[n] || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return false;
        i += n;
    }
    return true;
}

bool reference_valid(std::string_view f) {
    const auto hash = f.find('#');
    if (hash != std::string_view::npos &&
        (hash != f.size() - 1 || (f.size() > 1 && f[hash - 1] != '/')))
        return false;
    for (std::size_t i = 0; i < f.size(); ++i) {
        if (f[i] != '+') continue;
        if ((i > 0 && f[i - 1] != '/') || (i + 1 < f.size() && f[i + 1] != '/')) return false;
    }
    return true;
}

// For a valid filter. "+" is followed by "/" or the end and cannot take "/", so taking the
// longest run is exact.
bool reference_matches(std::string_view f, std::string_view t) {
    std::size_t ti = 0;
    for (std::size_t fi = 0; fi < f.size(); ++fi) {
        if (f[fi] == '+') {
            while (ti < t.size() && level_char(t[ti])) ++ti;
        } else if (f[fi] == '#') {
            for (; ti < t.size(); ++ti)
                if (!level_char(t[ti]) && t[ti] != '/') return false;
        } else {
            if (ti >= t.size() || t[ti] != f[fi]) return false;
            ++ti;
        }
    }
    return ti == t.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    const std::string filter = in.ConsumeRandomLengthString(size);
    const std::string topic = in.ConsumeRemainingBytesAsString();

    const bool valid = mqtt::is_valid_topic_filter(filter);
    if (valid != reference_valid(filter)) fuzz::mismatch("validity differs from the reference");

    std::unique_ptr<mqtt::topic_subscription> subscription;
    const bool made = fuzz::expecting_library_errors([&] {
        subscription = std::make_unique<mqtt::topic_subscription>(
            filter, mqtt::quality_of_service::at_most_once, [](auto) {});
    });
    if (made != (valid && carriable(filter))) fuzz::mismatch("filter refusal differs");
    const bool publishable =
        fuzz::expecting_library_errors([&] { mqtt::check_publish_topic(topic); });
    if (publishable !=
        (!topic.empty() && carriable(topic) && topic.find_first_of("+#") == std::string::npos))
        fuzz::mismatch("publish topic refusal differs");
    if (!made) return 0;
    if (subscription->matches(topic) != reference_matches(filter, topic))
        fuzz::mismatch("match differs from the reference");
    return 0;
}
