#pragma once

#include <memory>
#include <string>

#include "libtavohelper/module/logs.h"
#include "libtavohelper/module/service_container.h"
#include "libtavohelper/responses/results.h"
#include "libtavohelper/settings/persistent_data_storage.h"
#include "libtavohelper/settings/sensor_data_wrapper.h"

namespace corvanis::monitoring_modules::libtavohelper::sensors {

// Who a sensor or check is, for its start-up banner.
struct identity {
    std::string display_name;
    std::string version;
};

class sensor_interface {
  public:
    virtual ~sensor_interface();
    virtual int get_id() const = 0;
    virtual void log(const std::string& text) = 0;
    virtual void log(liblog::severity level, const std::string& text) = 0;
    // Runs one scan and sends its result to the host; never throws.
    virtual void scan() = 0;
};

namespace detail {
std::shared_ptr<liblog::log_interface> make_logger(int id, module::service_container& container);
void send(module::service_container& container, const messaging::tavo_message& message);
responses::sensor_scan_result run_guarded_work(
    int id, liblog::log_interface& log, const std::function<responses::sensor_scan_result()>& work);
}  // namespace detail

// Base of every sensor. Settings is constructed from the settings block and may
// throw; the sensor is then not created. work() runs on a host thread, may throw
// (the exception becomes an error result) and may run concurrently with message
// handlers on library threads.
template <class Settings>
class sensor_base : public sensor_interface {
  public:
    ~sensor_base() override { log("################### Cleaning Up  ####################"); }

    int get_id() const override { return id_; }
    void log(const std::string& text) override { log(liblog::severity::debug, text); }
    void log(liblog::severity level, const std::string& text) override {
        logger_->log(level, text);
    }

    void scan() override {
        log("#################### Enter sensor scan ####################");
        const auto result = detail::run_guarded_work(id_, *logger_, [this] { return work(); });
        log("#################### Exit sensor scan  ####################");
        try {
            detail::send(*container_, result);
        } catch (const std::exception& e) {
            log(liblog::severity::error, std::string("Could not send scan result: ") + e.what());
        }
    }

  protected:
    sensor_base(int id, const settings::sensor_data_wrapper& data,
                std::shared_ptr<module::service_container> container, const identity& who)
        : id_(id),
          container_(std::move(container)),
          logger_(detail::make_logger(id, *container_)),
          banner_((announce(who), 0)),
          channels_(std::make_shared<settings::channel_map>(data.get_channels())),
          persistent_(data.get_persistent_data()),
          settings_(data) {}

    virtual responses::sensor_scan_result work() = 0;

    responses::sensor_scan_result make_result() const { return {id_, channels_}; }
    // Keeps the value locally and asks the host to persist it.
    void persist(const std::string& key, const std::string& value) {
        persistent_[key] = value;
        detail::send(*container_, messaging::persistent_data(id_, key, value));
    }

    const Settings& settings() const { return settings_; }
    const std::shared_ptr<module::service_container>& container() const { return container_; }
    const std::shared_ptr<liblog::log_interface>& logger() const { return logger_; }
    settings::channel_map& channels() { return *channels_; }
    const settings::persistent_data_storage& persistent() const { return persistent_; }

  private:
    void announce(const identity& who) {
        log("#################### Initializing ####################");
        log(who.display_name + " version is: " + who.version + "\n");
    }

    int id_;
    std::shared_ptr<module::service_container> container_;
    std::shared_ptr<liblog::log_interface> logger_;
    int banner_;  // written before the settings are read, so a bad block still logs the banner
    std::shared_ptr<settings::channel_map> channels_;
    settings::persistent_data_storage persistent_;
    const Settings settings_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::sensors
