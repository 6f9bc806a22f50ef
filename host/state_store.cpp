#include "host/state_store.h"

#include <sqlite3.h>

#include <memory>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

struct statement_deleter {
    void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using statement = std::unique_ptr<sqlite3_stmt, statement_deleter>;

statement prepare(sqlite3* db, const char* sql) {
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &raw, nullptr) != SQLITE_OK) {
        sqlite3_finalize(raw);
        throw host_error(std::string("state database: ") + sqlite3_errmsg(db));
    }
    return statement(raw);
}

void step_done(sqlite3* db, sqlite3_stmt* s) {
    if (sqlite3_step(s) != SQLITE_DONE)
        throw host_error(std::string("state database: ") + sqlite3_errmsg(db));
}

}  // namespace

state_store::state_store(const std::string& path) {
    const std::string name = path.empty() ? ":memory:" : path;
    if (sqlite3_open_v2(name.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
        SQLITE_OK) {
        const std::string why = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        throw host_error("cannot open the state database \"" + path + "\": " + why);
    }
    // Another tavo-probe may hold the file for a moment.
    sqlite3_busy_timeout(db_, 5000);
    try {
        // A write-ahead log synced at checkpoints rather than at every commit: thousands of
        // sensors created at once each write here, and a sync per commit held them in line.
        // A crash may lose the last moments of counters, never the file's consistency.
        exec("PRAGMA journal_mode=WAL");
        exec("PRAGMA synchronous=NORMAL");
        exec(
            "CREATE TABLE IF NOT EXISTS sensors (sensor_id INTEGER PRIMARY KEY, kind TEXT NOT "
            "NULL)");
        exec(
            "CREATE TABLE IF NOT EXISTS persistent_data (sensor_id INTEGER NOT NULL, key TEXT NOT "
            "NULL, "
            "value BLOB NOT NULL, PRIMARY KEY (sensor_id, key))");
        exec(
            "CREATE TABLE IF NOT EXISTS counters (sensor_id INTEGER NOT NULL, channel_id INTEGER "
            "NOT NULL, reading INTEGER NOT NULL, PRIMARY KEY (sensor_id, channel_id))");
    } catch (...) {
        sqlite3_close(db_);
        throw;
    }
}

state_store::~state_store() {
    sqlite3_close(db_);
}

void state_store::exec(const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string why = error != nullptr ? error : "unknown error";
        sqlite3_free(error);
        throw host_error("state database: " + why);
    }
}

std::map<std::string, std::string> state_store::load(int sensor_id, const std::string& kind) {
    std::lock_guard lock(mutex_);
    auto find_kind = prepare(db_, "SELECT kind FROM sensors WHERE sensor_id = ?");
    sqlite3_bind_int(find_kind.get(), 1, sensor_id);
    std::string stored;
    if (sqlite3_step(find_kind.get()) == SQLITE_ROW) {
        stored = reinterpret_cast<const char*>(sqlite3_column_text(find_kind.get(), 0));
    }
    if (stored != kind) {
        find_kind.reset();
        // One transaction, one commit: the sensor is claimed for its kind together with
        // dropping what another kind kept.
        exec("BEGIN IMMEDIATE");
        try {
            for (const char* sql : {"DELETE FROM persistent_data WHERE sensor_id = ?",
                                    "DELETE FROM counters WHERE sensor_id = ?"}) {
                auto drop = prepare(db_, sql);
                sqlite3_bind_int(drop.get(), 1, sensor_id);
                step_done(db_, drop.get());
            }
            auto claim =
                prepare(db_, "INSERT OR REPLACE INTO sensors (sensor_id, kind) VALUES (?, ?)");
            sqlite3_bind_int(claim.get(), 1, sensor_id);
            sqlite3_bind_text(claim.get(), 2, kind.data(), static_cast<int>(kind.size()),
                              SQLITE_TRANSIENT);
            step_done(db_, claim.get());
            exec("COMMIT");
        } catch (...) {
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
        return {};
    }
    std::map<std::string, std::string> data;
    auto rows = prepare(db_, "SELECT key, value FROM persistent_data WHERE sensor_id = ?");
    sqlite3_bind_int(rows.get(), 1, sensor_id);
    while (sqlite3_step(rows.get()) == SQLITE_ROW) {
        const auto* key = reinterpret_cast<const char*>(sqlite3_column_text(rows.get(), 0));
        const auto* value = static_cast<const char*>(sqlite3_column_blob(rows.get(), 1));
        const int size = sqlite3_column_bytes(rows.get(), 1);
        data[key] = std::string(value != nullptr ? value : "", static_cast<std::size_t>(size));
    }
    return data;
}

void state_store::put(int sensor_id, const std::string& key, const std::string& value) {
    std::lock_guard lock(mutex_);
    auto upsert = prepare(
        db_, "INSERT OR REPLACE INTO persistent_data (sensor_id, key, value) VALUES (?, ?, ?)");
    sqlite3_bind_int(upsert.get(), 1, sensor_id);
    sqlite3_bind_text(upsert.get(), 2, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
    sqlite3_bind_blob(upsert.get(), 3, value.data(), static_cast<int>(value.size()),
                      SQLITE_TRANSIENT);
    step_done(db_, upsert.get());
}

std::map<int, std::int64_t> state_store::load_counters(int sensor_id) {
    std::lock_guard lock(mutex_);
    std::map<int, std::int64_t> readings;
    auto rows = prepare(db_, "SELECT channel_id, reading FROM counters WHERE sensor_id = ?");
    sqlite3_bind_int(rows.get(), 1, sensor_id);
    while (sqlite3_step(rows.get()) == SQLITE_ROW) {
        readings[sqlite3_column_int(rows.get(), 0)] = sqlite3_column_int64(rows.get(), 1);
    }
    return readings;
}

void state_store::put_counters(int sensor_id, const std::map<int, std::int64_t>& readings) {
    std::lock_guard lock(mutex_);
    auto upsert = prepare(
        db_, "INSERT OR REPLACE INTO counters (sensor_id, channel_id, reading) VALUES (?, ?, ?)");
    for (const auto& [channel, reading] : readings) {
        sqlite3_reset(upsert.get());
        sqlite3_bind_int(upsert.get(), 1, sensor_id);
        sqlite3_bind_int(upsert.get(), 2, channel);
        sqlite3_bind_int64(upsert.get(), 3, reading);
        step_done(db_, upsert.get());
    }
}

}  // namespace corvanis::monitoring_modules::host
