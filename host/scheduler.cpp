#include "host/scheduler.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace corvanis::monitoring_modules::host {

scan_scheduler::scan_scheduler(std::size_t workers, scan_function scan)
    : workers_(std::max<std::size_t>(1, workers)), scan_(std::move(scan)) {}

void scan_scheduler::add(int sensor_id, clock::duration interval, std::size_t limit) {
    std::lock_guard lock(mutex_);
    entry e{interval, limit, limit == 0, clock::now()};
    // A scan under way still counts: the sensor is never scanned twice at once.
    if (const auto it = entries_.find(sensor_id); it != entries_.end()) {
        e.running = it->second.running;
        e.holds = it->second.holds;
    }
    entries_.insert_or_assign(sensor_id, e);
    ++generation_;
    changed_.notify_all();
}

bool scan_scheduler::hold_idle(std::unique_lock<std::mutex>& lock, int sensor_id) {
    auto it = entries_.find(sensor_id);
    if (it == entries_.end()) return false;
    ++it->second.holds;
    changed_.wait(lock, [&] {
        it = entries_.find(sensor_id);
        return it == entries_.end() || !it->second.running;
    });
    if (it == entries_.end()) return false;
    --it->second.holds;
    return true;
}

void scan_scheduler::remove(int sensor_id) {
    std::unique_lock lock(mutex_);
    if (!hold_idle(lock, sensor_id)) return;
    entries_.erase(sensor_id);
    ++generation_;
    changed_.notify_all();
}

void scan_scheduler::while_idle(int sensor_id, const std::function<void()>& change) {
    std::unique_lock lock(mutex_);
    if (hold_idle(lock, sensor_id)) change();
    ++generation_;
    changed_.notify_all();
}

bool scan_scheduler::finished() const {
    // With no sensor at all it waits: a reload may be between taking out and putting in.
    return !entries_.empty() && std::all_of(entries_.begin(), entries_.end(), [](const auto& e) {
        return !e.second.unlimited && e.second.remaining == 0 && !e.second.running;
    });
}

void scan_scheduler::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return closing_ || !ready_.empty(); });
        if (closing_) return;
        const int id = ready_.front();
        ready_.pop_front();
        lock.unlock();
        scan_(id);
        lock.lock();
        // A running sensor is not removed, but an add may have replaced its entry.
        if (const auto it = entries_.find(id); it != entries_.end()) {
            auto& e = it->second;
            e.running = false;
            // Fixed rate while scans keep up; after an overrun the next scan starts at once.
            e.due = std::max(e.due + e.interval, clock::now());
        }
        ++generation_;
        changed_.notify_all();
    }
}

void scan_scheduler::run(std::stop_token stop) {
    std::vector<std::jthread> pool;
    std::unique_lock lock(mutex_);
    closing_ = false;
    while (!stop.stop_requested() && !finished()) {
        // Sensors added while running may call for more workers, up to the pool's size.
        const std::size_t wanted = std::min(workers_, std::max<std::size_t>(1, entries_.size()));
        while (pool.size() < wanted) pool.emplace_back([this] { work(); });
        const auto now = clock::now();
        auto next = clock::time_point::max();
        for (auto& [id, e] : entries_) {
            if (e.running || e.holds > 0 || (!e.unlimited && e.remaining == 0)) continue;
            if (e.due <= now) {
                e.running = true;
                if (!e.unlimited) --e.remaining;
                ready_.push_back(id);
                changed_.notify_all();
            } else {
                next = std::min(next, e.due);
            }
        }
        // Woken by a finished scan, a change, the next due time or the stop request.
        const auto seen = generation_;
        const auto scan_ended = [&] { return generation_ != seen; };
        if (next == clock::time_point::max()) {
            changed_.wait(lock, stop, scan_ended);
        } else {
            changed_.wait_until(lock, stop, next, scan_ended);
        }
    }
    // Due scans not yet started are dropped; running ones end before the workers go.
    for (const int id : ready_) {
        if (const auto it = entries_.find(id); it != entries_.end()) it->second.running = false;
    }
    ready_.clear();
    changed_.notify_all();
    changed_.wait(lock, [&] {
        return std::none_of(entries_.begin(), entries_.end(),
                            [](const auto& e) { return e.second.running; });
    });
    closing_ = true;
    changed_.notify_all();
    lock.unlock();
    pool.clear();
}

}  // namespace corvanis::monitoring_modules::host
