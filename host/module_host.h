#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "libmodulehost/module_library.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::host {

namespace wire = tavo::wire;

// The module's answer to one call: its result code and the message it sent for it.
template <class Message>
struct call_outcome {
    int code = 0;
    std::optional<Message> message;
};

// What a module's result code means, for error texts.
std::string describe_result_code(int code);

// The libMQTT.so that belongs to the running program: its installed private library folder,
// ../lib in a build tree, then its own directory.
std::filesystem::path default_module_path();

// Messages the module sends, sorted by kind and id as the callback receives them.
// Thread-safe; the waiting calls block only the host thread that asks.
class module_inbox {
  public:
    using persistent_data_handler = std::function<void(const wire::PersistentData&)>;
    using log_handler = std::function<void(const wire::Log&)>;

    // Handlers run on the module's threads; they must be quick and must not call the module.
    module_inbox(persistent_data_handler on_persistent_data, log_handler on_log);

    // Bytes that are not a ModuleMessage are dropped.
    void deliver(const void* bytes, std::uint32_t size);

    std::optional<wire::ScanResult> take_scan_result(int sensor_id, std::chrono::milliseconds wait);
    std::optional<wire::CheckResult> take_check_result(int check_id,
                                                       std::chrono::milliseconds wait);
    std::optional<wire::NotificationResponse> take_notification_response(
        int id, std::chrono::milliseconds wait);
    std::optional<wire::ModuleInformation> take_module_information(std::chrono::milliseconds wait);
    // Drops whatever is waiting for the sensor, so that the next take sees only new results.
    void discard_scan_results(int sensor_id);

  private:
    template <class Message>
    std::optional<Message> take(std::map<int, std::deque<Message>>& box, int id,
                                std::chrono::milliseconds wait);

    persistent_data_handler on_persistent_data_;
    log_handler on_log_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::map<int, std::deque<wire::ScanResult>> scan_results_;    // guarded by mutex_
    std::map<int, std::deque<wire::CheckResult>> check_results_;  // guarded by mutex_
    std::map<int, std::deque<wire::NotificationResponse>>
        notification_responses_;                                             // guarded by mutex_
    std::map<int, std::deque<wire::ModuleInformation>> module_information_;  // guarded by mutex_
};

// A loaded and initialised module whose messages go to an inbox. The calls other than
// construction and destruction may come from several threads at once.
class module_session {
  public:
    // Loads the library, checks its API level and initialises it with the inbox's callback.
    // Throws host_error (exit 3) when any step fails. `inbox` must outlive the session.
    module_session(const std::filesystem::path& library, module_inbox& inbox);
    // Cleans the module up; the library stays mapped, since its threads may still be ending.
    ~module_session();
    module_session(const module_session&) = delete;
    module_session& operator=(const module_session&) = delete;

    int api_level() const { return library_->api_level(); }
    // The description document. Throws host_error when the module gives none.
    std::string module_information();
    int set_log_threshold(int severity);

    call_outcome<wire::ScanResult> create_sensor(int id, const wire::SettingsBlock& block);
    // A scan whose call fails without a result gets an error result that says why.
    wire::ScanResult scan(int id);
    int destroy_sensor(int id);
    call_outcome<wire::CheckResult> check(int id, const wire::SettingsBlock& block);
    call_outcome<wire::NotificationResponse> notify(int id, const wire::SettingsBlock& block);

  private:
    module_inbox& inbox_;
    std::unique_ptr<modulehost::module_library> library_;
};

}  // namespace corvanis::monitoring_modules::host
