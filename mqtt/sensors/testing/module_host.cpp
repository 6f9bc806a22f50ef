#include "mqtt/sensors/testing/module_host.h"

#include <gtest/gtest.h>

#include <cmath>

#include "mqtt/settings/testing/sample_settings.h"

namespace module_testing {

namespace {

bool is_secret(const std::string& key) {
    return key.ends_with("password") || key.ends_with("apikey");
}

}  // namespace

wire::SettingsBlock settings_block(const std::string& kind, int port,
                                   const settings_map& overrides) {
    const auto m = corvanis::monitoring_modules::mqtt::testing::with(
        corvanis::monitoring_modules::mqtt::testing::sample_settings(kind, port), overrides);
    wire::SettingsBlock block;
    block.set_kind(kind);
    for (const auto& [k, v] : m) {
        (*(is_secret(k) ? block.mutable_secure_settings() : block.mutable_settings()))[k] = v;
    }
    return block;
}

module_host::module_host()
    : library_(std::make_unique<corvanis::monitoring_modules::modulehost::module_library>(
          MQTT_MODULE_PATH,
          [this](const void* bytes, std::uint32_t size) { receive(bytes, size); })) {}

module_host::~module_host() = default;

void module_host::receive(const void* bytes, std::uint32_t size) {
    wire::ModuleMessage message;
    if (!message.ParseFromArray(bytes, static_cast<int>(size))) {
        ADD_FAILURE() << "undecodable module message of " << size << " bytes";
        return;
    }
    std::lock_guard lock(mutex_);
    messages_.push_back(std::move(message));
}

int module_host::create(int id, const wire::SettingsBlock& block) {
    return library_->create(id, block);
}
int module_host::scan(int id) {
    return library_->scan(id);
}
int module_host::destroy(int id) {
    return library_->destroy(id);
}
wire::ScanResult module_host::last_scan_result(int sensor_id) {
    std::lock_guard lock(mutex_);
    for (auto m = messages_.rbegin(); m != messages_.rend(); ++m) {
        if (m->has_scan_result() && m->scan_result().sensor_id() == sensor_id)
            return m->scan_result();
    }
    ADD_FAILURE() << "no scan result for sensor " << sensor_id;
    return {};
}

bool has_value(const wire::ScanResult& result, int channel_id) {
    for (const auto& v : result.values())
        if (v.id() == channel_id) return true;
    return false;
}

double value_of(const wire::ScanResult& result, int channel_id) {
    for (const auto& v : result.values()) {
        if (v.id() == channel_id) {
            return v.value_case() == wire::ChannelValue::kFloat ? v.float_()
                                                                : static_cast<double>(v.integer());
        }
    }
    return std::nan("");
}

}  // namespace module_testing
