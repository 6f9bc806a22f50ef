#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include "libtavohelper/checks/check_base.h"
#include "libtavohelper/module/service_container.h"
#include "libtavohelper/notifications/notification.h"
#include "libtavohelper/sensors/sensor_base.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

// What the dispatcher's calls answer; a module passes them to its host unchanged.
enum dispatch_result : int {
    dispatch_ok = 0,
    dispatch_unknown_kind = 4,          // no sensor, check or notification of that kind
    dispatch_id_in_use = 5,             // a sensor with that id exists already
    dispatch_unknown_id = 6,            // no sensor with that id
    dispatch_creation_failed = 7,       // the reason was sent as an error result
    dispatch_unsupported_selector = 8,  // meta-scan selector not offered
    dispatch_notification_failed = 9,   // the response with the failure was sent
    dispatch_notification_busy = 10,    // a notification with that id is still running
};

// Meta-scan selectors that the framework itself answers.
enum meta_scan_selector : unsigned int {
    meta_scan_sensor = 0,         // a sensor's own meta scan
    meta_scan_notification = 1,   // send the notification request of the block
    meta_scan_log_threshold = 2,  // set the severity threshold of both logs
};

// The live sensors by id. Thread-safe.
class sensor_stock {
  public:
    // Throws sensor_already_registered.
    void add_sensor(int id, const std::shared_ptr<sensors::sensor_interface>& sensor);
    std::shared_ptr<sensors::sensor_interface> find(int id) const;
    std::shared_ptr<sensors::sensor_interface> remove(int id);
    void clear();

  private:
    mutable std::mutex mutex_;
    std::unordered_map<int, std::shared_ptr<sensors::sensor_interface>> sensors_;  // guarded
};

// Creates, scans and destroys sensor instances by id, runs checks and
// notifications. Calls may come from several host threads at once.
class sensor_dispatcher {
  public:
    explicit sensor_dispatcher(std::shared_ptr<service_container> container)
        : container_(std::move(container)) {}
    ~sensor_dispatcher();

    template <class T>
    void register_sensor_as(const std::string& name) {
        sensor_kinds_[name] = [](int id, const settings::sensor_data_wrapper& data,
                                 std::shared_ptr<service_container> c) {
            return std::shared_ptr<sensors::sensor_interface>(
                std::make_shared<T>(id, data, std::move(c)));
        };
    }
    template <class T>
    void register_check_as(const std::string& name) {
        check_kinds_[name] = [](int id, const settings::sensor_data_wrapper& data,
                                std::shared_ptr<service_container> c) {
            return std::unique_ptr<checks::check_interface>(
                std::make_unique<T>(id, data, std::move(c)));
        };
    }
    template <class T>
    void register_notification_as(const std::string& name) {
        notification_kinds_[name] = [](std::shared_ptr<service_container> c) {
            return std::unique_ptr<notifications::service_interface>(
                std::make_unique<T>(std::move(c)));
        };
    }

    int create_sensor_instance(int id, const settings::sensor_data_wrapper& data);
    int execute_sensor_scan(int id);
    int destroy_sensor_instance(int id);
    int execute_meta_scan(int id, unsigned int selector, const settings::sensor_data_wrapper& data);
    int execute_check(int id, const settings::sensor_data_wrapper& data);

  private:
    using sensor_factory = std::function<std::shared_ptr<sensors::sensor_interface>(
        int, const settings::sensor_data_wrapper&, std::shared_ptr<service_container>)>;
    using check_factory = std::function<std::unique_ptr<checks::check_interface>(
        int, const settings::sensor_data_wrapper&, std::shared_ptr<service_container>)>;
    using notification_factory = std::function<std::unique_ptr<notifications::service_interface>(
        std::shared_ptr<service_container>)>;

    int send_notification(int id, const settings::sensor_data_wrapper& data);
    void send(const messaging::tavo_message& message);
    void log(liblog::severity level, const std::string& text);

    std::shared_ptr<service_container> container_;
    // Filled during module set-up only, read-only afterwards.
    std::unordered_map<std::string, sensor_factory> sensor_kinds_;
    std::unordered_map<std::string, check_factory> check_kinds_;
    std::unordered_map<std::string, notification_factory> notification_kinds_;
    sensor_stock stock_;
    std::mutex notifications_mutex_;
    std::set<int> notifications_running_;  // guarded by notifications_mutex_
};

}  // namespace corvanis::monitoring_modules::libtavohelper::module
