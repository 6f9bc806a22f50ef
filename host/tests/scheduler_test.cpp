#include "host/scheduler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace corvanis::monitoring_modules::host {
namespace {

using namespace std::chrono_literals;

// Scans are counted per sensor; overlapping scans of one sensor are recorded.
struct recorder {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, int> scans;
    std::map<int, int> running;
    bool overlap = false;

    void begin(int id) {
        std::lock_guard lock(mutex);
        if (++running[id] > 1) overlap = true;
    }
    void end(int id) {
        std::lock_guard lock(mutex);
        --running[id];
        ++scans[id];
        changed.notify_all();
    }
    // A generous limit turns a deadlock into a failure rather than a hung suite.
    bool wait_for_scans(int id, int count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 30s, [&] { return scans[id] >= count; });
    }
};

TEST(scheduler_test, each_sensor_gets_exactly_its_limit_and_never_two_scans_at_once) {
    recorder r;
    scan_scheduler scheduler(3, [&](int id) {
        r.begin(id);
        std::this_thread::sleep_for(1ms);
        r.end(id);
    });
    scheduler.add(1, 0ms, 5);
    scheduler.add(2, 2ms, 3);
    scheduler.add(3, 0ms, 1);
    scheduler.run({});
    EXPECT_EQ(r.scans, (std::map<int, int>{{1, 5}, {2, 3}, {3, 1}}));
    EXPECT_FALSE(r.overlap);
}

TEST(scheduler_test, many_sensors_on_few_workers_each_get_their_limit_and_no_more) {
    struct row {
        int sensors;
        std::size_t workers;
        std::size_t limit;
    };
    for (const auto& [sensors, workers, limit] :
         std::vector<row>{{1, 1, 3}, {500, 1, 2}, {500, 4, 3}, {2000, 32, 1}, {7, 32, 4}}) {
        recorder r;
        scan_scheduler scheduler(workers, [&](int id) {
            r.begin(id);
            r.end(id);
        });
        // Intervals differ, so that due times interleave across sensors.
        for (int id = 0; id < sensors; ++id)
            scheduler.add(id, std::chrono::microseconds(id % 5 * 100), limit);
        scheduler.run({});
        const std::string label =
            std::to_string(sensors) + " sensors on " + std::to_string(workers) + " workers";
        ASSERT_EQ(r.scans.size(), static_cast<std::size_t>(sensors)) << label;
        for (const auto& [id, count] : r.scans)
            ASSERT_EQ(count, static_cast<int>(limit)) << label << ", sensor " << id;
        EXPECT_FALSE(r.overlap) << label;
    }
}

// Scans already waiting for a replaced or removed sensor never start, and the run ends once
// every sensor has had its scans, although a replaced sensor was due again an hour on.
TEST(scheduler_test, replaced_and_removed_sensors_scan_as_their_latest_add_says) {
    recorder r;
    std::stop_source stop;
    scan_scheduler scheduler(2, [&](int id) {
        r.begin(id);
        r.end(id);
    });
    scheduler.add(1, 1ms);
    scheduler.add(2, 1h);
    scheduler.add(4, 1ms);
    int removed_scans = 0;
    std::jthread changes([&] {
        EXPECT_TRUE(r.wait_for_scans(2, 1));
        EXPECT_TRUE(r.wait_for_scans(4, 3));
        scheduler.remove(4);
        {
            std::lock_guard lock(r.mutex);
            removed_scans = r.scans[4];
        }
        scheduler.add(2, 1ms, 2);
        scheduler.add(3, 1h, 1);
        scheduler.add(1, 1ms, 1);  // the last sensor without a limit gets one
    });
    // A run that does not end by itself fails the test instead of hanging it.
    std::jthread guard([&](std::stop_token done) {
        std::mutex mutex;
        std::condition_variable_any never;
        std::unique_lock lock(mutex);
        if (!never.wait_for(lock, done, 30s, [] { return false; })) stop.request_stop();
    });
    scheduler.run(stop.get_token());
    changes.join();
    EXPECT_FALSE(stop.stop_requested());
    EXPECT_EQ(r.scans[2], 3);
    EXPECT_EQ(r.scans[3], 1);
    EXPECT_EQ(r.scans[4], removed_scans);
    EXPECT_FALSE(r.overlap);
}

TEST(scheduler_test, slow_scans_leave_workers_free_for_the_others) {
    // Sensors 1 and 2 are slow and stay stuck until sensor 3 has scanned three times; with
    // two workers, only the limit on slow scans leaves one for sensor 3.
    struct row {
        std::size_t workers;
        std::size_t slow_limit;
    };
    for (const auto& [workers, slow_limit] : std::vector<row>{{2, 1}, {3, 2}, {2, 0}}) {
        recorder r;
        std::atomic<int> unblocked = 0;
        scan_scheduler scheduler(
            workers,
            [&](int id) {
                r.begin(id);
                if (id != 3 && r.wait_for_scans(3, 3)) ++unblocked;
                r.end(id);
            },
            [](int id) { return id != 3; }, slow_limit);
        scheduler.add(1, 1ms, 1);
        scheduler.add(2, 1ms, 1);
        scheduler.add(3, 1ms, 3);
        scheduler.run({});
        EXPECT_EQ(unblocked, 2) << workers << " workers, " << slow_limit << " slow";
        EXPECT_EQ(r.scans, (std::map<int, int>{{1, 1}, {2, 1}, {3, 3}}));
    }
}

TEST(scheduler_test, a_stuck_sensor_does_not_hold_back_the_others) {
    recorder r;
    std::atomic<bool> others_done = false;
    scan_scheduler scheduler(2, [&](int id) {
        r.begin(id);
        if (id == 1)
            others_done = r.wait_for_scans(2, 4);  // stuck until sensor 2 has scanned four times
        r.end(id);
    });
    scheduler.add(1, 1ms, 1);
    scheduler.add(2, 1ms, 4);
    scheduler.run({});
    EXPECT_TRUE(others_done);
    EXPECT_EQ(r.scans[1], 1);
}

TEST(scheduler_test, stopping_awaits_the_running_scan_and_starts_no_other) {
    recorder r;
    std::stop_source stop;
    scan_scheduler scheduler(2, [&](int id) {
        r.begin(id);
        stop.request_stop();  // arrives while this scan runs
        r.end(id);
    });
    scheduler.add(1, 1h);
    scheduler.add(2, 1h);
    scheduler.run(stop.get_token());
    std::lock_guard lock(r.mutex);
    EXPECT_GE(r.scans[1] + r.scans[2], 1);
    EXPECT_EQ(r.running[1] + r.running[2], 0);
    EXPECT_LE(r.scans[1], 1);
    EXPECT_LE(r.scans[2], 1);
}

TEST(scheduler_test, sensors_come_and_go_while_it_runs_and_a_removed_one_is_never_scanned_again) {
    recorder r;
    std::stop_source stop;
    std::atomic<bool> started = false;  // sensor 1's scan is under way
    std::atomic<bool> release = false;  // ends sensor 1's scan
    std::atomic<bool> removed = false;
    std::atomic<bool> removed_mid_scan = false;
    std::atomic<bool> waited = false;
    std::atomic<bool> side_by_side = false;
    scan_scheduler scheduler(2, [&](int id) {
        r.begin(id);
        if (id == 1) {
            started = true;
            while (!release) std::this_thread::sleep_for(1ms);
            if (removed) removed_mid_scan = true;
        }
        // Sensor 2 waits for sensor 3: only a second worker, started for the sensors added
        // later, lets both run at once.
        if (id == 2 && !waited.exchange(true)) side_by_side = r.wait_for_scans(3, 1);
        r.end(id);
    });
    scheduler.add(1, 1ms);
    std::thread changes([&] {
        while (!started) std::this_thread::sleep_for(1ms);
        std::thread remover([&] {
            scheduler.remove(1);
            removed = true;
        });
        // Give a wrong remove the chance to return while the scan still runs.
        std::this_thread::sleep_for(20ms);
        release = true;
        remover.join();
        scheduler.add(2, 1ms);
        scheduler.add(3, 1ms);
        EXPECT_TRUE(r.wait_for_scans(2, 3));
        EXPECT_TRUE(r.wait_for_scans(3, 3));
        stop.request_stop();
    });
    scheduler.run(stop.get_token());
    changes.join();
    EXPECT_FALSE(removed_mid_scan);
    EXPECT_TRUE(side_by_side);
    EXPECT_EQ(r.scans[1], 1);
    EXPECT_FALSE(r.overlap);
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
