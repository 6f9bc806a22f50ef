#include "libtavohelper/module/sensor_dispatcher.h"

#include <stdexcept>

#include "libtavohelper/module/logs.h"

namespace corvanis::monitoring_modules::libtavohelper {

namespace module {

using namespace protocol;
using utils::exceptions::sensor_registry_error;

// ---- sensor_stock ----------------------------------------------------------

void sensor_stock::add_sensor(int id, const std::shared_ptr<sensors::sensor_interface>& sensor) {
    std::lock_guard lock(mutex_);
    if (!sensors_.try_emplace(id, sensor).second) {
        throw sensor_registry_error(messages::sensor_already_registered()(std::to_string(id)));
    }
}

std::shared_ptr<sensors::sensor_interface> sensor_stock::find(int id) const {
    std::lock_guard lock(mutex_);
    const auto it = sensors_.find(id);
    return it == sensors_.end() ? nullptr : it->second;
}

std::shared_ptr<sensors::sensor_interface> sensor_stock::remove(int id) {
    std::lock_guard lock(mutex_);
    const auto it = sensors_.find(id);
    if (it == sensors_.end()) {
        return nullptr;
    }
    auto sensor = std::move(it->second);
    sensors_.erase(it);
    return sensor;
}

void sensor_stock::clear() {
    std::unordered_map<int, std::shared_ptr<sensors::sensor_interface>> doomed;
    {
        std::lock_guard lock(mutex_);
        doomed.swap(sensors_);
    }
    // Sensors die outside the lock: their destructors may wait for the network.
}

// ---- sensor_dispatcher -------------------------------------------------------

sensor_dispatcher::~sensor_dispatcher() {
    stock_.clear();
}

void sensor_dispatcher::send(const messaging::tavo_message& message) {
    try {
        container_->get_or_create<messaging::message_service_interface>()->send(message);
    } catch (const std::exception& e) {
        log(liblog::severity::error,
            std::string("Could not send a message to the host: ") + e.what());
    }
}

void sensor_dispatcher::log(liblog::severity level, const std::string& text) {
    if (auto runtime = container_->find_instance<liblog::log_interface>()) {
        runtime->log(level, text);
    }
}

int sensor_dispatcher::create_sensor_instance(int id, const settings::sensor_data_wrapper& data) {
    if (stock_.find(id)) {
        log(liblog::severity::error,
            messages::sensor_already_registered()(std::to_string(id)).render());
        return result_id_in_use;
    }
    const auto kind = sensor_kinds_.find(data.kind());
    if (kind == sensor_kinds_.end()) {
        const sensor_registry_error error(
            messages::sensor_registry()("Unknown sensor kind \"" + data.kind() + "\"."));
        log(liblog::severity::error, error.what());
        send(responses::sensor_scan_result(id, error));
        return result_unknown_kind;
    }
    std::shared_ptr<sensors::sensor_interface> sensor;
    try {
        sensor = kind->second(id, data, container_);
    } catch (const libi18n::i18n_exception& e) {
        log(liblog::severity::error,
            "Sensor " + std::to_string(id) + " could not be created: " + e.what());
        send(responses::sensor_scan_result(id, e));
        return result_creation_failed;
    } catch (const std::exception& e) {
        log(liblog::severity::error,
            "Sensor " + std::to_string(id) + " could not be created: " + e.what());
        send(responses::sensor_scan_result(id, e));
        return result_creation_failed;
    }
    try {
        stock_.add_sensor(id, sensor);
    } catch (const sensor_registry_error&) {
        return result_id_in_use;  // created concurrently under the same id
    }
    return result_ok;
}

int sensor_dispatcher::execute_sensor_scan(int id) {
    const auto sensor = stock_.find(id);
    if (!sensor) {
        log(liblog::severity::error,
            messages::sensor_not_in_sensor_stock()(std::to_string(id)).render());
        return result_unknown_id;
    }
    sensor->scan();
    return result_ok;
}

int sensor_dispatcher::destroy_sensor_instance(int id) {
    auto sensor = stock_.remove(id);
    if (!sensor) {
        log(liblog::severity::error,
            messages::sensor_not_in_sensor_stock()(std::to_string(id)).render());
        return result_unknown_id;
    }
    sensor.reset();  // a scan still running keeps its own reference and ends first
    return result_ok;
}

int sensor_dispatcher::execute_meta_scan(int id, unsigned int selector,
                                         const settings::sensor_data_wrapper& data) {
    switch (selector) {
        case selector_notification:
            return send_notification(id, data);
        case selector_log_threshold: {
            const int threshold = data.get_log_threshold();
            if (auto runtime = std::dynamic_pointer_cast<host_log>(
                    container_->find_instance<liblog::log_interface>())) {
                runtime->set_threshold(threshold);
            }
            if (auto sensor = container_->find_instance<sensor_log>()) {
                sensor->set_threshold(threshold);
            }
            return result_ok;
        }
        default:
            return result_unsupported_selector;
    }
}

int sensor_dispatcher::send_notification(int id, const settings::sensor_data_wrapper& data) {
    const auto lines = std::make_shared<liblog::memory_logger>();
    const auto fail = [&](const libi18n::i18n_msg& why, int code) {
        notifications::response answer(lines->lines());
        answer.set_id(id);
        answer.set_failure(why);
        try {
            container_->get_or_create<messaging::message_service_interface>()->send(
                answer.serialize());
        } catch (const std::exception& e) {
            log(liblog::severity::error,
                std::string("Could not send a message to the host: ") + e.what());
        }
        return code;
    };
    const auto kind = notification_kinds_.find(data.kind());
    if (kind == notification_kinds_.end()) {
        return fail(
            messages::sensor_registry()("Unknown notification kind \"" + data.kind() + "\"."),
            result_unknown_kind);
    }
    const auto request = data.get_notification_request();
    if (!request) {
        return fail(messages::setting_not_available()("notification"), result_notification_failed);
    }
    // A host may retry a notification that is still being sent: the retry must not send twice.
    {
        std::lock_guard lock(notifications_mutex_);
        if (!notifications_running_.insert(id).second) {
            return fail(messages::notification_already_registered()(std::to_string(id)),
                        result_notification_busy);
        }
    }
    struct running_guard {
        sensor_dispatcher& self;
        int id;
        ~running_guard() {
            std::lock_guard lock(self.notifications_mutex_);
            self.notifications_running_.erase(id);
        }
    } guard{*this, id};

    try {
        kind->second(container_)->send_notification(*request, data, lines);
    } catch (const std::exception& e) {
        return fail(libi18n::to_i18n_msg(e), result_notification_failed);
    } catch (...) {
        return fail(libi18n::messages::generic()("Unknown exception."), result_notification_failed);
    }
    notifications::response answer(lines->lines());
    answer.set_id(id);
    try {
        container_->get_or_create<messaging::message_service_interface>()->send(answer.serialize());
    } catch (const std::exception& e) {
        log(liblog::severity::error,
            std::string("Could not send a message to the host: ") + e.what());
    }
    return result_ok;
}

int sensor_dispatcher::execute_check(int id, const settings::sensor_data_wrapper& data) {
    responses::check_result failed(id);
    const auto kind = check_kinds_.find(data.kind());
    if (kind == check_kinds_.end()) {
        failed.set_message(
            messages::sensor_registry()("Unknown check kind \"" + data.kind() + "\"."));
        send(failed);
        return result_unknown_kind;
    }
    std::unique_ptr<checks::check_interface> check;
    try {
        check = kind->second(id, data, container_);
    } catch (const std::exception& e) {
        log(liblog::severity::error,
            "Check " + std::to_string(id) + " could not be created: " + e.what());
        failed.set_message(libi18n::to_i18n_msg(e));
        send(failed);
        return result_creation_failed;
    }
    try {
        send(check->work());
    } catch (const std::exception& e) {
        failed.set_message(libi18n::to_i18n_msg(e));
        send(failed);
    }
    return result_ok;
}

}  // namespace module
}  // namespace corvanis::monitoring_modules::libtavohelper
