#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

struct sqlite3;

namespace corvanis::monitoring_modules::host {

// The persistent data sensors ask the host to keep, by sensor id, in an SQLite
// database; an empty path keeps it in memory for this run only. Thread-safe.
class state_store {
  public:
    // Throws host_error when the database cannot be opened or created.
    explicit state_store(const std::string& path = "");
    ~state_store();
    state_store(const state_store&) = delete;
    state_store& operator=(const state_store&) = delete;

    // The data kept for the sensor. Data kept for a sensor of another kind under the same
    // id is dropped, since it would mean nothing to this one.
    std::map<std::string, std::string> load(int sensor_id, const std::string& kind);
    // Throws host_error when the write fails.
    void put(int sensor_id, const std::string& key, const std::string& value);

    // The host's own last reading of each counter channel of the sensor, by channel id; dropped
    // with the sensor's other data when its kind changes.
    std::map<int, std::int64_t> load_counters(int sensor_id);
    // Throws host_error when the write fails.
    void put_counters(int sensor_id, const std::map<int, std::int64_t>& readings);

  private:
    void exec(const char* sql);

    std::mutex mutex_;
    sqlite3* db_ = nullptr;  // guarded by mutex_
};

}  // namespace corvanis::monitoring_modules::host
