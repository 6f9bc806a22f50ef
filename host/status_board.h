#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <shared_mutex>
#include <string>
#include <vector>

#include "host/output.h"

namespace corvanis::monitoring_modules::host {

// Recent shown values of one channel, oldest first once read through values().
class channel_history {
  public:
    explicit channel_history(std::size_t capacity) : capacity_(capacity) {}
    // NaN marks a scan without a value (a counter's first scan or a reset), a gap in the line.
    void push(float value);
    std::vector<float> values() const;

  private:
    std::size_t capacity_;
    std::size_t next_ = 0;  // where the next value goes once the ring is full
    std::vector<float> ring_;
};

struct sensor_status {
    scan_view latest;  // before the first scan: state "unknown", no channels
    bool scanned = false;
    std::map<int, channel_history> history;  // by channel id
};

struct board_totals {
    std::uint64_t scans = 0;
    std::uint64_t scan_errors = 0;  // scans whose result is an error
    std::uint64_t creation_failures = 0;
};

// The latest result of every sensor of a run, for the HTTP endpoints. Scan workers write,
// HTTP workers read; every member is thread-safe.
class status_board {
  public:
    explicit status_board(std::size_t history_length = 60);

    // Makes the sensor visible before its first scan.
    void add_sensor(int id, const std::string& name, const std::string& kind,
                    const std::string& display);
    // A sensor a reload took away leaves the board.
    void remove_sensor(int id);
    // The run loop's one call per scan result. A result without a time gets the present.
    void record(const scan_view& scan);
    void count_creation_failure();

    // Calls visit(const sensor_status&) for every sensor by id under a shared lock, so
    // writers wait while it runs: keep it to formatting.
    template <class Visit>
    void for_each(Visit&& visit) const {
        std::shared_lock lock(mutex_);
        for (const auto& [id, status] : sensors_) visit(status);
    }
    // A copy of every sensor by id, for work too slow to hold writers back.
    std::vector<sensor_status> snapshot() const;
    board_totals totals() const;
    std::size_t size() const;

  private:
    std::size_t history_length_;
    mutable std::shared_mutex mutex_;
    std::map<int, sensor_status> sensors_;  // guarded by mutex_
    board_totals totals_;                   // guarded by mutex_
};

}  // namespace corvanis::monitoring_modules::host
