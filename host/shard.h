#pragma once

#include <cstdint>
#include <string>

namespace corvanis::monitoring_modules::host {

// One of N probes sharing a config: shard `index` (0 .. count-1) of `count`.
struct shard_assignment {
    unsigned index = 0;
    unsigned count = 1;

    std::string text() const;  // "K/N"
    // The sensor belongs to this shard when shard_hash(id) % count == index.
    bool owns(int sensor_id) const;
};

// "K/N" with 0 <= K < N. Throws host_error (exit 1) naming what is wrong.
shard_assignment parse_shard(const std::string& text);

// 64-bit FNV-1a over the decimal digits of the id ("42" -> bytes '4', '2'), so that any
// tool can reproduce the assignment; independent of the standard library's hash.
std::uint64_t shard_hash(int sensor_id);

}  // namespace corvanis::monitoring_modules::host
