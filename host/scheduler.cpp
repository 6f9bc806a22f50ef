#include "host/scheduler.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace corvanis::monitoring_modules::host {

scan_scheduler::scan_scheduler(std::size_t workers, scan_function scan, slow_predicate slow,
                               std::size_t slow_limit)
    : workers_(std::max<std::size_t>(1, workers)),
      scan_(std::move(scan)),
      slow_(std::move(slow)),
      slow_limit_(std::max<std::size_t>(1, slow_limit)) {}

void scan_scheduler::queue(int id, entry& e) {
    if (e.running || e.holds > 0 || e.ticket != 0 || !e.has_scans_left()) return;
    e.ticket = ++last_ticket_;
    waiting_.push({e.due, id, e.ticket});
}

const scan_scheduler::due_item* scan_scheduler::next_due() {
    while (!waiting_.empty()) {
        const auto& top = waiting_.top();
        const auto it = entries_.find(top.id);
        if (it != entries_.end() && it->second.ticket == top.ticket) return &top;
        waiting_.pop();
    }
    return nullptr;
}

void scan_scheduler::add(int sensor_id, clock::duration interval, std::size_t limit) {
    std::lock_guard lock(mutex_);
    entry e{interval, limit, limit == 0, clock::now()};
    // A scan under way still counts: the sensor is never scanned twice at once.
    if (const auto it = entries_.find(sensor_id); it != entries_.end()) {
        e.running = it->second.running;
        e.holds = it->second.holds;
    }
    queue(sensor_id, entries_.insert_or_assign(sensor_id, e).first->second);
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
    if (hold_idle(lock, sensor_id)) {
        change();
        // Its due scan may have been passed over while held.
        queue(sensor_id, entries_.at(sensor_id));
    }
    ++generation_;
    changed_.notify_all();
}

bool scan_scheduler::finished() {
    // With no sensor at all it waits: a reload may be between taking out and putting in.
    // Looks at every sensor only once none is due or running.
    if (entries_.empty() || running_ > 0 || next_due() != nullptr) return false;
    return std::none_of(entries_.begin(), entries_.end(),
                        [](const auto& e) { return e.second.has_scans_left(); });
}

bool scan_scheduler::can_take() const {
    return !ready_.empty() || (!slow_ready_.empty() && slow_running_ < slow_limit_);
}

void scan_scheduler::start_due(clock::time_point now) {
    for (const due_item* item = next_due(); item != nullptr && item->due <= now;
         item = next_due()) {
        const int id = item->id;
        waiting_.pop();
        auto& e = entries_.at(id);
        e.ticket = 0;
        if (e.holds > 0) continue;  // queued again when the hold ends
        e.running = true;
        ++running_;
        if (!e.unlimited) --e.remaining;
        (slow_ && slow_(id) ? slow_ready_ : ready_).push_back(id);
        work_ready_.notify_one();
    }
}

void scan_scheduler::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        work_ready_.wait(lock, [&] { return closing_ || can_take(); });
        if (closing_) return;
        const bool slow = ready_.empty();
        auto& from = slow ? slow_ready_ : ready_;
        const int id = from.front();
        from.pop_front();
        if (slow) ++slow_running_;
        lock.unlock();
        scan_(id);
        lock.lock();
        --running_;
        if (slow) {
            --slow_running_;
            // A slow scan may be waiting for the place this one leaves.
            if (can_take()) work_ready_.notify_one();
        }
        // A running sensor is not removed, but an add may have replaced its entry.
        if (const auto it = entries_.find(id); it != entries_.end()) {
            auto& e = it->second;
            e.running = false;
            const auto now = clock::now();
            if (!e.scanned) e.due = now;
            e.scanned = true;
            // Fixed rate while scans keep up; after an overrun the next scan starts at once.
            e.due = std::max(e.due + e.interval, now);
            queue(id, e);
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
        start_due(clock::now());
        // Woken by a finished scan, a change, the next due time or the stop request.
        const auto seen = generation_;
        const auto scan_ended = [&] { return generation_ != seen; };
        if (const auto* next = next_due(); next == nullptr) {
            changed_.wait(lock, stop, scan_ended);
        } else {
            const auto due = next->due;  // the heap may change while this waits
            changed_.wait_until(lock, stop, due, scan_ended);
        }
    }
    // Due scans not yet started are dropped; running ones end before the workers go.
    for (auto* dropped : {&ready_, &slow_ready_}) {
        for (const int id : *dropped) {
            --running_;
            if (const auto it = entries_.find(id); it != entries_.end()) {
                it->second.running = false;
                queue(id, it->second);
            }
        }
        dropped->clear();
    }
    changed_.notify_all();
    changed_.wait(lock, [&] { return running_ == 0; });
    closing_ = true;
    work_ready_.notify_all();
    lock.unlock();
    pool.clear();
}

}  // namespace corvanis::monitoring_modules::host
