#include "host/shard.h"

#include <charconv>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

bool parse_unsigned(std::string_view text, unsigned& value) {
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && ec == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string shard_assignment::text() const {
    return std::to_string(index) + "/" + std::to_string(count);
}

bool shard_assignment::owns(int sensor_id) const {
    return shard_hash(sensor_id) % count == index;
}

shard_assignment parse_shard(const std::string& text) {
    const auto slash = text.find('/');
    shard_assignment assigned;
    const std::string_view view(text);
    if (slash == std::string::npos || !parse_unsigned(view.substr(0, slash), assigned.index) ||
        !parse_unsigned(view.substr(slash + 1), assigned.count)) {
        throw host_error("--shard takes K/N (two whole numbers, e.g. 0/3), not \"" + text + "\"",
                         exit_usage);
    }
    if (assigned.count == 0 || assigned.index >= assigned.count) {
        throw host_error("--shard " + text + ": K counts from 0 and must be below N", exit_usage);
    }
    return assigned;
}

std::uint64_t shard_hash(int sensor_id) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : std::to_string(sensor_id)) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ULL;
    }
    return hash;
}

}  // namespace corvanis::monitoring_modules::host
