#pragma once

#include <atomic>
#include <memory>

#include "liblog/log_interface.h"
#include "libtavohelper/messaging/messages.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

class service_container;

// Forwards lines up to a severity threshold to the host as log messages. Never
// throws: a line that cannot be sent is dropped.
class host_log : public liblog::log_interface {
  public:
    ~host_log() override;
    static constexpr int default_threshold = liblog::to_int(liblog::severity::warning);

    host_log(messaging::log_source source,
             std::shared_ptr<messaging::message_service_interface> out)
        : source_(source), out_(std::move(out)) {}

    void log(liblog::severity level, const std::string& text) override { log_for(0, level, text); }
    void log_for(int sensor_id, liblog::severity level, const std::string& text) noexcept;
    bool enabled(liblog::severity level) const noexcept {
        return liblog::to_int(level) <= threshold_.load(std::memory_order_relaxed);
    }
    void set_threshold(int threshold) noexcept {
        threshold_.store(threshold);
        liblog::levels_changed();
    }
    int keeps_up_to() const noexcept override { return threshold(); }
    int threshold() const noexcept { return threshold_.load(); }

  private:
    messaging::log_source source_;
    std::shared_ptr<messaging::message_service_interface> out_;
    std::atomic<int> threshold_{default_threshold};
};

// The log every sensor and check writes to (the runtime log is the container's
// liblog::log_interface instance).
class sensor_log : public host_log {
  public:
    ~sensor_log() override;
    explicit sensor_log(std::shared_ptr<messaging::message_service_interface> out)
        : host_log(messaging::log_source::sensor, std::move(out)) {}
};

// One sensor's own logger: tags its lines with the sensor id. Sensors hand it to
// the clients they use, which hold it weakly, so it leaves their fan-out with the sensor.
class sensor_logger : public liblog::log_interface {
  public:
    sensor_logger(int sensor_id, std::shared_ptr<sensor_log> sink)
        : sensor_id_(sensor_id), sink_(std::move(sink)) {}
    void log(liblog::severity level, const std::string& text) override {
        if (sink_) sink_->log_for(sensor_id_, level, text);
    }
    int keeps_up_to() const noexcept override { return sink_ ? sink_->threshold() : -1; }

  private:
    int sensor_id_;
    std::shared_ptr<sensor_log> sink_;
};

// Place the two logs into the container; call once each, in this order.
void register_runtime_log(const std::shared_ptr<service_container>& container);
void register_sensor_log(const std::shared_ptr<service_container>& container);

}  // namespace corvanis::monitoring_modules::libtavohelper::module
