#pragma once
// An in-process host for end-to-end tests: loads the built module through the shared loader
// and keeps every message it sends, in arrival order.

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "libmodulehost/module_library.h"
#include "tavo.pb.h"

namespace module_testing {

namespace wire = corvanis::tavo::wire;
using settings_map = std::map<std::string, std::string>;

// The settings a host form would send for `kind` ("statistics_sensor",
// "roundtrip_sensor", "subscribe_custom_sensor", "mqtt_connect_check",
// "mqtt_notification"), with the broker at 127.0.0.1:`port`, then `overrides`.
// Keys whose last part is "password" or "apikey" go into the secret map.
wire::SettingsBlock settings_block(const std::string& kind, int port,
                                   const settings_map& overrides = {});

class module_host {
  public:
    // Loads MQTT_MODULE_PATH and initialises it; throws load_error when that fails.
    module_host();
    ~module_host();
    module_host(const module_host&) = delete;
    module_host& operator=(const module_host&) = delete;

    int create(int id, const wire::SettingsBlock& block);
    int scan(int id);
    int destroy(int id);

    // The newest scan result of the sensor; fails the test when there is none.
    wire::ScanResult last_scan_result(int sensor_id);

  private:
    void receive(const void* bytes, std::uint32_t size);

    std::mutex mutex_;
    std::vector<wire::ModuleMessage> messages_;  // guarded by mutex_
    // Last, so that the module is cleaned up before the messages it may still send go away.
    std::unique_ptr<corvanis::monitoring_modules::modulehost::module_library> library_;
};

// A channel's value as a double, whichever kind it was sent as; NaN when absent.
double value_of(const wire::ScanResult& result, int channel_id);
bool has_value(const wire::ScanResult& result, int channel_id);

}  // namespace module_testing
