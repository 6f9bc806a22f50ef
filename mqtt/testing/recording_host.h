#pragma once
// The container a module builds, with clients from a fake broker and a host that keeps what
// it is sent: for tests of sensors, checks and notifications without a broker or a loader.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "libtavohelper/messaging/messages.h"
#include "libtavohelper/module/service_container.h"
#include "libtavohelper/responses/results.h"
#include "mqtt/testing/fake_client.h"

namespace corvanis::monitoring_modules::mqtt::testing {

class recording_host {
  public:
    explicit recording_host(fake_broker broker = {});

    // Sensor log lines of every severity, in order.
    std::vector<std::string> log_texts() const;
    // The newest scan result sent for the sensor; throws std::out_of_range when none was.
    libtavohelper::responses::sensor_scan_result last_scan_result(int sensor_id) const;
    std::map<std::string, std::string> persisted(int sensor_id) const;  // newest value per key

    const std::shared_ptr<libtavohelper::module::service_container>& container() const {
        return container_;
    }
    fake_broker& broker() { return broker_; }

  private:
    class recorder;
    std::vector<std::vector<char>> sent() const;

    std::shared_ptr<recorder> recorder_;
    fake_broker broker_;
    std::shared_ptr<libtavohelper::module::service_container> container_;
};

}  // namespace corvanis::monitoring_modules::mqtt::testing
