#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <queue>
#include <stop_token>
#include <unordered_map>
#include <vector>

namespace corvanis::monitoring_modules::host {

// Runs each sensor's scans on its own interval on a small pool of workers, so that a
// slow scan holds back only its own sensor. A sensor is never scanned twice at once;
// a scan that overruns its interval is followed by the next one as soon as it ends.
// A sensor's rate counts from the end of its first scan: thousands of sensors whose first
// scans (their creation) wait their turn then spread over the interval instead of all
// falling due at one instant ever after.
// Due times wait in a heap, so starting a scan costs the same with ten sensors or ten
// thousand.
class scan_scheduler {
  public:
    using clock = std::chrono::steady_clock;
    // Called on a worker thread; must not throw.
    using scan_function = std::function<void(int sensor_id)>;
    // Says whether a sensor's next scan may take long (its creation, say); called with the
    // scheduler's lock held, so it must be quick and must not call the scheduler. At most
    // `slow_limit` such scans run at once, so the other workers stay free for the rest.
    using slow_predicate = std::function<bool(int sensor_id)>;

    scan_scheduler(std::size_t workers, scan_function scan, slow_predicate slow = {},
                   std::size_t slow_limit = 0);

    // The first scan is due at once. `limit` 0 scans until stopped. Also while running;
    // an id that is already there is replaced.
    void add(int sensor_id, clock::duration interval, std::size_t limit = 0);
    // Takes a sensor out, after its running scan (if any) has ended.
    void remove(int sensor_id);
    // Calls `change` while the sensor is not being scanned, so that it can alter what
    // its scans read; `change` must be quick and must not call the scheduler.
    void while_idle(int sensor_id, const std::function<void()>& change);
    // Blocks until stop is requested or every sensor has had its limit of scans (with no
    // sensor, until stop is requested); a scan
    // that is running then is awaited, one that is only due is dropped.
    void run(std::stop_token stop);

  private:
    struct entry {
        clock::duration interval;
        std::size_t remaining;  // scans still to start; 0 with unlimited means none left
        bool unlimited;
        clock::time_point due;
        bool running = false;
        bool scanned = false;  // its first scan has ended
        int holds = 0;         // removals and changes waiting for the running scan: start no other
        // The heap item that stands for this entry's next scan; 0: none (running, held or
        // done). Items with another ticket are left over from replaced or removed entries.
        std::uint64_t ticket = 0;
        bool has_scans_left() const { return unlimited || remaining > 0; }
    };
    struct due_item {
        clock::time_point due;
        int id;
        std::uint64_t ticket;
        bool operator>(const due_item& other) const { return due > other.due; }
    };

    // Waits, holding off new scans of the sensor, until none runs; false when it is not there.
    bool hold_idle(std::unique_lock<std::mutex>& lock, int sensor_id);
    // Puts the entry's next scan in the heap unless it runs, is held, waits there already
    // or has no scans left.
    void queue(int id, entry& e);
    // The heap's first item that still stands for a scan, dropping the ones left over.
    const due_item* next_due();
    void start_due(clock::time_point now);
    bool can_take() const;
    bool finished();

    void work();

    std::size_t workers_;
    scan_function scan_;
    slow_predicate slow_;
    std::size_t slow_limit_;
    std::mutex mutex_;
    std::condition_variable_any changed_;     // scans ended, sensors changed: the run loop, holds
    std::condition_variable_any work_ready_;  // a scan may be taken: the workers
    std::unordered_map<int, entry> entries_;  // guarded by mutex_; by sensor id
    std::priority_queue<due_item, std::vector<due_item>, std::greater<>>
        waiting_;                    // guarded by mutex_; the earliest due first
    std::uint64_t last_ticket_ = 0;  // guarded by mutex_
    std::deque<int> ready_;          // guarded by mutex_; sensor ids
    std::deque<int> slow_ready_;     // guarded by mutex_; sensor ids
    std::size_t running_ = 0;        // guarded by mutex_; entries with running set
    std::size_t slow_running_ = 0;   // guarded by mutex_
    bool closing_ = false;           // guarded by mutex_
    unsigned long generation_ = 0;   // guarded by mutex_; counts finished scans and changes
};

}  // namespace corvanis::monitoring_modules::host
