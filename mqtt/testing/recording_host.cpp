#include "mqtt/testing/recording_host.h"

#include <mutex>
#include <stdexcept>

#include "liblog/log_interface.h"
#include "libstringutils/random_string_generator.h"
#include "libtavohelper/module/logs.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::mqtt::testing {

namespace tavo = libtavohelper;
namespace wire = corvanis::tavo::wire;

namespace {
wire::ModuleMessage parse(const std::vector<char>& bytes) {
    wire::ModuleMessage message;
    message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    return message;
}
}  // namespace

// The module's message service, as the host's callback would see it.
class recording_host::recorder : public tavo::messaging::message_service_interface {
  public:
    using message_service_interface::send;
    void send(const std::vector<char>& bytes) override {
        std::lock_guard lock(mutex_);
        sent_.push_back(bytes);
    }
    std::vector<std::vector<char>> sent() const {
        std::lock_guard lock(mutex_);
        return sent_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::vector<char>> sent_;  // guarded by mutex_
};

recording_host::recording_host(fake_broker broker)
    : recorder_(std::make_shared<recorder>()),
      broker_(std::move(broker)),
      container_(std::make_shared<tavo::module::service_container>()) {
    container_->add_instance<tavo::messaging::message_service_interface>(recorder_);
    container_->register_factory<libstringutils::random_string_generator_interface>(
        std::function<std::unique_ptr<libstringutils::random_string_generator_interface>()>(
            &libstringutils::make_random_string_generator));
    container_->register_factory<mqtt_client_interface, mqtt_client_settings>(broker_.factory());
    tavo::module::register_runtime_log(container_);
    tavo::module::register_sensor_log(container_);
    container_->find_instance<tavo::module::sensor_log>()->set_threshold(
        liblog::to_int(liblog::severity::debug));
}

std::vector<std::vector<char>> recording_host::sent() const {
    return recorder_->sent();
}

std::vector<std::string> recording_host::log_texts() const {
    std::vector<std::string> texts;
    for (const auto& bytes : sent()) {
        const auto m = parse(bytes);
        if (m.has_log() && m.log().source() == wire::Log::SENSOR)
            texts.push_back(m.log().line().text());
    }
    return texts;
}

tavo::responses::sensor_scan_result recording_host::last_scan_result(int sensor_id) const {
    const auto all = sent();
    for (auto it = all.rbegin(); it != all.rend(); ++it) {
        const auto m = parse(*it);
        if (m.has_scan_result() && m.scan_result().sensor_id() == sensor_id) {
            tavo::responses::sensor_scan_result result(sensor_id, nullptr);
            result.fill_from_buffer(*it);
            return result;
        }
    }
    throw std::out_of_range("no scan result for sensor " + std::to_string(sensor_id));
}

std::map<std::string, std::string> recording_host::persisted(int sensor_id) const {
    std::map<std::string, std::string> data;
    for (const auto& bytes : sent()) {
        const auto m = parse(bytes);
        if (m.has_persistent_data() && m.persistent_data().sensor_id() == sensor_id)
            data[m.persistent_data().key()] = m.persistent_data().value();
    }
    return data;
}

}  // namespace corvanis::monitoring_modules::mqtt::testing
