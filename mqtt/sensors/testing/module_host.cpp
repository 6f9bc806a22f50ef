#include "mqtt/sensors/testing/module_host.h"

#include <gtest/gtest.h>

#include <cmath>

#include "mqtt/settings/testing/sample_settings.h"

namespace module_testing {

namespace {

namespace protocol = corvanis::monitoring_modules::libtavohelper::protocol;

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
    {
        std::lock_guard lock(mutex_);
        messages_.push_back(std::move(message));
        ++arrivals_;
    }
    arrived_.notify_all();
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
int module_host::check(int id, const wire::SettingsBlock& block) {
    return library_->check(id, block);
}
int module_host::meta_scan(int id, unsigned selector, const wire::SettingsBlock& block) {
    return library_->meta_scan(id, selector, block);
}
void module_host::set_log_threshold(int threshold) {
    wire::SettingsBlock block;
    block.set_log_threshold(threshold);
    EXPECT_EQ(meta_scan(0, protocol::selector_log_threshold, block), protocol::result_ok);
}

std::vector<wire::ModuleMessage> module_host::messages() {
    std::lock_guard lock(mutex_);
    return messages_;
}

std::vector<wire::ScanResult> module_host::scan_results(int sensor_id) {
    std::vector<wire::ScanResult> out;
    for (const auto& m : messages())
        if (m.has_scan_result() && m.scan_result().sensor_id() == sensor_id)
            out.push_back(m.scan_result());
    return out;
}

wire::ScanResult module_host::last_scan_result(int sensor_id) {
    const auto all = scan_results(sensor_id);
    if (all.empty()) {
        ADD_FAILURE() << "no scan result for sensor " << sensor_id;
        return {};
    }
    return all.back();
}

std::vector<wire::CheckResult> module_host::check_results() {
    std::vector<wire::CheckResult> out;
    for (const auto& m : messages())
        if (m.has_check_result()) out.push_back(m.check_result());
    return out;
}

std::vector<wire::NotificationResponse> module_host::notification_responses() {
    std::vector<wire::NotificationResponse> out;
    for (const auto& m : messages())
        if (m.has_notification_response()) out.push_back(m.notification_response());
    return out;
}

std::map<std::string, std::string> module_host::persisted(int sensor_id) {
    std::map<std::string, std::string> out;
    for (const auto& m : messages())
        if (m.has_persistent_data() && m.persistent_data().sensor_id() == sensor_id)
            out[m.persistent_data().key()] = m.persistent_data().value();
    return out;
}

std::vector<std::string> module_host::log_texts() {
    std::vector<std::string> out;
    for (const auto& m : messages())
        if (m.has_log()) out.push_back(m.log().line().text());
    return out;
}

void module_host::clear() {
    std::lock_guard lock(mutex_);
    messages_.clear();
}

bool module_host::wait_for(const std::function<bool(const std::vector<wire::ModuleMessage>&)>& pred,
                           std::chrono::milliseconds timeout) {
    // The predicate runs on a snapshot with the lock released, so it may call back
    // into the host (log_texts(), scan(), ...) without deadlocking.
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        std::vector<wire::ModuleMessage> snapshot;
        std::size_t seen = 0;
        {
            std::lock_guard lock(mutex_);
            snapshot = messages_;
            seen = arrivals_;
        }
        if (pred(snapshot)) return true;
        std::unique_lock lock(mutex_);
        const bool more = arrived_.wait_until(lock, deadline, [&] { return arrivals_ != seen; });
        if (!more) {
            lock.unlock();
            return pred(messages());
        }
    }
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
