#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <stop_token>

namespace corvanis::monitoring_modules::host {

// Runs each sensor's scans on its own interval on a small pool of workers, so that a
// slow scan holds back only its own sensor. A sensor is never scanned twice at once;
// a scan that overruns its interval is followed by the next one as soon as it ends.
class scan_scheduler {
  public:
    using clock = std::chrono::steady_clock;
    // Called on a worker thread; must not throw.
    using scan_function = std::function<void(int sensor_id)>;

    scan_scheduler(std::size_t workers, scan_function scan);

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
        int holds = 0;  // removals and changes waiting for the running scan: start no other
    };

    // Waits, holding off new scans of the sensor, until none runs; false when it is not there.
    bool hold_idle(std::unique_lock<std::mutex>& lock, int sensor_id);

    void work();
    bool finished() const;

    std::size_t workers_;
    scan_function scan_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::map<int, entry> entries_;  // guarded by mutex_; by sensor id
    std::deque<int> ready_;         // guarded by mutex_; sensor ids
    bool closing_ = false;          // guarded by mutex_
    unsigned long generation_ = 0;  // guarded by mutex_; counts finished scans and changes
};

}  // namespace corvanis::monitoring_modules::host
