#pragma once

#include "libtavohelper/sensors/sensor_base.h"

namespace corvanis::monitoring_modules::libtavohelper::checks {

class check_interface {
  public:
    virtual ~check_interface();
    virtual int get_id() const = 0;
    virtual void log(const std::string& text) = 0;
    virtual void log(liblog::severity level, const std::string& text) = 0;
    // Answers the check; failures are reported inside the result.
    virtual responses::check_result work() = 0;
};

// Base of every check; Settings is constructed from the settings block and may throw.
template <class Settings>
class check_base : public check_interface {
  public:
    ~check_base() override { log("################### Cleaning Up  ####################"); }

    int get_id() const override { return id_; }
    void log(const std::string& text) override { log(liblog::severity::debug, text); }
    void log(liblog::severity level, const std::string& text) override {
        logger_->log(level, text);
    }

  protected:
    check_base(int id, const settings::sensor_data_wrapper& data,
               std::shared_ptr<module::service_container> container, const sensors::identity& who)
        : id_(id),
          container_(std::move(container)),
          logger_(sensors::detail::make_logger(id, *container_)),
          banner_((announce(who), 0)),
          settings_(data) {}

    const Settings& settings() const { return settings_; }
    const std::shared_ptr<module::service_container>& container() const { return container_; }
    const std::shared_ptr<liblog::log_interface>& logger() const { return logger_; }

  private:
    void announce(const sensors::identity& who) {
        log("#################### Initializing ####################");
        log(who.display_name + " version is: " + who.version + "\n");
    }

    int id_;
    std::shared_ptr<module::service_container> container_;
    std::shared_ptr<liblog::log_interface> logger_;
    int banner_;
    const Settings settings_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::checks
