// Topic filter validation and matching against a plain reference matcher: "+" is one level
// and "#" the rest of the topic, each of the characters [a-zA-Z0-9 _.-] ("/" too for "#");
// every other character of the filter stands for itself.
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
    if (!made) return 0;
    if (!valid) fuzz::mismatch("an invalid filter was accepted");
    if (subscription->matches(topic) != reference_matches(filter, topic))
        fuzz::mismatch("match differs from the reference");
    return 0;
}
