#include "host/status_board.h"

#include <cmath>
#include <mutex>

namespace corvanis::monitoring_modules::host {

void channel_history::push(float value) {
    if (ring_.size() < capacity_) {
        ring_.push_back(value);
        return;
    }
    if (capacity_ == 0) return;
    ring_[next_] = value;
    next_ = (next_ + 1) % capacity_;
}

std::vector<float> channel_history::values() const {
    std::vector<float> out;
    out.reserve(ring_.size());
    out.insert(out.end(), ring_.begin() + static_cast<std::ptrdiff_t>(next_), ring_.end());
    out.insert(out.end(), ring_.begin(), ring_.begin() + static_cast<std::ptrdiff_t>(next_));
    return out;
}

status_board::status_board(std::size_t history_length) : history_length_(history_length) {}

void status_board::add_sensor(int id, const std::string& name, const std::string& kind,
                              const std::string& display) {
    std::unique_lock lock(mutex_);
    auto& status = sensors_[id];
    status.latest.sensor_id = id;
    status.latest.name = name;
    status.latest.kind = kind;
    status.latest.display = display.empty() ? kind : display;
    status.latest.state = "unknown";
    status.latest.message = message_view{"", "not scanned yet", {}};
}

void status_board::remove_sensor(int id) {
    std::unique_lock lock(mutex_);
    sensors_.erase(id);
}

void status_board::record(const scan_view& scan) {
    std::unique_lock lock(mutex_);
    ++totals_.scans;
    if (scan.error) ++totals_.scan_errors;
    auto& status = sensors_[scan.sensor_id];
    // What the board was told at the start stays where a result leaves it out.
    std::string name = scan.name.empty() ? status.latest.name : scan.name;
    std::string display = scan.display.empty() ? status.latest.display : scan.display;
    status.latest = scan;
    status.latest.name = std::move(name);
    status.latest.display = std::move(display);
    // A view that carries only the module's code never shows green for a failure.
    if (scan.state == "ok" && scan.response_code != 0) {
        status.latest.state = scan.response_code == 1   ? "warning"
                              : scan.response_code == 2 ? "unknown"
                                                        : "error";
    }
    if (scan.time == std::chrono::system_clock::time_point{})
        status.latest.time = std::chrono::system_clock::now();
    status.scanned = true;
    for (const auto& channel : scan.channels) {
        const float value = !channel.has_value ? NAN
                            : channel.integer  ? static_cast<float>(channel.integer_value)
                                               : static_cast<float>(channel.floating_value);
        status.history.try_emplace(channel.id, history_length_).first->second.push(value);
    }
}

void status_board::count_creation_failure() {
    std::unique_lock lock(mutex_);
    ++totals_.creation_failures;
}

std::vector<sensor_status> status_board::snapshot() const {
    std::shared_lock lock(mutex_);
    std::vector<sensor_status> out;
    out.reserve(sensors_.size());
    for (const auto& [id, status] : sensors_) out.push_back(status);
    return out;
}

board_totals status_board::totals() const {
    std::shared_lock lock(mutex_);
    return totals_;
}

std::size_t status_board::size() const {
    std::shared_lock lock(mutex_);
    return sensors_.size();
}

}  // namespace corvanis::monitoring_modules::host
