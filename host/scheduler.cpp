#include "host/scheduler.h"

#include <algorithm>
#include <thread>

namespace corvanis::monitoring_modules::host {

scan_scheduler::scan_scheduler(std::size_t workers, scan_function scan)
    : workers_(std::max<std::size_t>(1, workers)), scan_(std::move(scan)) {}

void scan_scheduler::add(int sensor_id, clock::duration interval, std::size_t limit) {
    std::lock_guard lock(mutex_);
    entries_.push_back({sensor_id, interval, limit, limit == 0, clock::now()});
}

bool scan_scheduler::finished() const {
    return std::all_of(entries_.begin(), entries_.end(), [](const entry& e) {
        return !e.unlimited && e.remaining == 0 && !e.running;
    });
}

void scan_scheduler::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return closing_ || !ready_.empty(); });
        if (closing_) return;
        const std::size_t index = ready_.front();
        ready_.pop_front();
        const int id = entries_[index].id;
        lock.unlock();
        scan_(id);
        lock.lock();
        auto& e = entries_[index];
        e.running = false;
        // Fixed rate while scans keep up; after an overrun the next scan starts at once.
        e.due = std::max(e.due + e.interval, clock::now());
        ++generation_;
        changed_.notify_all();
    }
}

void scan_scheduler::run(std::stop_token stop) {
    std::vector<std::jthread> pool;
    {
        std::lock_guard lock(mutex_);
        closing_ = false;
        const std::size_t count = std::min(workers_, std::max<std::size_t>(1, entries_.size()));
        for (std::size_t i = 0; i < count; ++i) pool.emplace_back([this] { work(); });
    }
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested() && !finished()) {
        const auto now = clock::now();
        auto next = clock::time_point::max();
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            auto& e = entries_[i];
            if (e.running || (!e.unlimited && e.remaining == 0)) continue;
            if (e.due <= now) {
                e.running = true;
                if (!e.unlimited) --e.remaining;
                ready_.push_back(i);
                changed_.notify_all();
            } else {
                next = std::min(next, e.due);
            }
        }
        // Woken by a finished scan, by the next due time or by the stop request.
        const auto seen = generation_;
        const auto scan_ended = [&] { return generation_ != seen; };
        if (next == clock::time_point::max()) {
            changed_.wait(lock, stop, scan_ended);
        } else {
            changed_.wait_until(lock, stop, next, scan_ended);
        }
    }
    // Due scans not yet started are dropped; running ones end before the workers go.
    for (const std::size_t index : ready_) entries_[index].running = false;
    ready_.clear();
    changed_.wait(lock, [&] {
        return std::none_of(entries_.begin(), entries_.end(),
                            [](const entry& e) { return e.running; });
    });
    closing_ = true;
    changed_.notify_all();
    lock.unlock();
    pool.clear();
}

}  // namespace corvanis::monitoring_modules::host
