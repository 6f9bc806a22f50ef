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
#include "libtavohelper/protocol.h"
#include "libtavohelper/sensors/sensor_base.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

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
// Answers protocol::result_code values; a module passes them to its host unchanged.
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
