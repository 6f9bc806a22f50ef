// A module that follows docs/protocol.md with trivial features, so that tavo-probe's
// command line can be tested without a broker:
//   counter_sensor  counts its scans (persisted as "count"); mode "fail" fails every scan,
//                   "refuse" refuses creation; delay_ms slows each scan down
//   topic_sensor    needs subscription filter (required, no default)
//   fake_check      succeeds unless host is "unreachable.invalid"
//   mqtt_notification  delivers unless the target is "forbidden"
// With FAKE_MODULE_TRACE set, every call is appended to that file.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#define MQTT_MODULE_BUILD
#include "host/tests/fake_description.h"
#include "module/mqtt_module.h"
#include "tavo.pb.h"

namespace {

namespace wire = corvanis::tavo::wire;

struct sensor {
    std::mutex mutex;
    wire::SettingsBlock block;
    long long count = 0;  // guarded by mutex
};

std::mutex module_mutex;
bool initialised = false;
std::uint64_t context = 0;
mqtt_module_callback callback = nullptr;
int threshold = 4;
std::map<int, std::shared_ptr<sensor>> sensors;  // guarded by module_mutex

void trace(const std::string& line) {
    if (const char* path = std::getenv("FAKE_MODULE_TRACE"))
        std::ofstream(path, std::ios::app) << line << "\n";
}

void send(const wire::ModuleMessage& message) {
    const auto bytes = message.SerializeAsString();
    callback(context, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

void log(int severity, int sensor_id, const std::string& text) {
    if (severity > threshold) return;
    wire::ModuleMessage message;
    auto* log = message.mutable_log();
    log->set_source(sensor_id == 0 ? wire::Log::RUNTIME : wire::Log::SENSOR);
    log->set_sensor_id(sensor_id);
    log->mutable_line()->set_severity(severity);
    log->mutable_line()->set_text(text);
    send(message);
}

std::string setting(const wire::SettingsBlock& block, const std::string& key) {
    const auto it = block.settings().find(key);
    return it == block.settings().end() ? "" : it->second;
}

bool decode(const void* data, std::uint32_t size, wire::SettingsBlock& block) {
    return block.ParseFromArray(data, static_cast<int>(size));
}

// Every plain setting and the names of the secret ones, so tests can see what arrived.
std::string echo(const wire::SettingsBlock& block) {
    const std::map<std::string, std::string> plain(block.settings().begin(),
                                                   block.settings().end());
    std::string out;
    for (const auto& [key, value] : plain) out += key + "=" + value + ";";
    const std::map<std::string, std::string> secure(block.secure_settings().begin(),
                                                    block.secure_settings().end());
    for (const auto& [key, value] : secure) out += "secret:" + key + ";";
    return out;
}

void add_channel(wire::ScanResult& result, int id, const std::string& name, const std::string& unit,
                 double scale, const std::string& lookup, long long value) {
    auto* d = result.add_definitions();
    d->set_id(id);
    d->set_name(name);
    d->set_unit(unit);
    d->set_kind(wire::CHANNEL_KIND_INTEGER);
    d->set_scale_factor(scale);
    d->set_lookup(lookup);
    auto* v = result.add_values();
    v->set_id(id);
    v->set_integer(value);
}

wire::ScanResult scan_result(int id, sensor& s) {
    wire::ScanResult result;
    result.set_sensor_id(id);
    const auto& block = s.block;
    if (block.kind() == "topic_sensor") {
        const auto filter = setting(block, "topic.subscription.filter");
        add_channel(result, 0, "Length", "chars", 1, "", static_cast<long long>(filter.size()));
        result.mutable_message()->set_text(filter);
        return result;
    }
    const auto delay = std::atoll(setting(block, "counting.counter.delay_ms").c_str());
    if (delay > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    std::lock_guard lock(s.mutex);
    if (setting(block, "counting.counter.mode") == "fail") {
        log(4, id, "scan failed on purpose");
        result.set_response_code(3);
        auto* m = result.mutable_message();
        m->set_key("fake.error.failed");
        m->set_default_text("Scan %0:s failed on purpose.");
        m->add_args(std::to_string(s.count + 1));
        return result;
    }
    s.count += std::atoll(setting(block, "counting.counter.step").c_str());
    add_channel(result, 0, "Count", "scans", 1, "", s.count);
    add_channel(result, 1, "Scaled", "",
                std::atof(setting(block, "counting.counter.scale").c_str()), "", s.count);
    add_channel(result, 2, "Parity", "", 1, "parity", s.count % 2);
    result.mutable_message()->set_text(echo(block));
    wire::ModuleMessage kept;
    kept.mutable_persistent_data()->set_sensor_id(id);
    kept.mutable_persistent_data()->set_key("count");
    kept.mutable_persistent_data()->set_value(std::to_string(s.count));
    send(kept);
    return result;
}

std::shared_ptr<sensor> find(int id) {
    std::lock_guard lock(module_mutex);
    const auto it = sensors.find(id);
    return it == sensors.end() ? nullptr : it->second;
}

}  // namespace

extern "C" {

int GetApiLevel(void) {
    return 6;
}

int InitializeModule(uint64_t host_context, mqtt_module_callback host_callback) {
    if (initialised) return 1;
    initialised = true;
    context = host_context;
    callback = host_callback;
    threshold = 4;
    trace("initialize");
    return 0;
}

int CleanupModule(void) {
    if (!initialised) return 0;
    std::map<int, std::shared_ptr<sensor>> doomed;
    {
        std::lock_guard lock(module_mutex);
        doomed.swap(sensors);
    }
    initialised = false;
    trace("cleanup");
    return 0;
}

void GetModuleInformation(bool load_languages) {
    if (!initialised) return;
    wire::ModuleMessage message;
    message.mutable_module_information()->set_description(fake_description);
    message.mutable_module_information()->set_load_languages(load_languages);
    send(message);
}

int GetModuleInformationSync(void* buffer, uint32_t* size, bool load_languages) {
    if (size == nullptr) return 1;
    if (!initialised) return 2;
    wire::ModuleMessage message;
    message.mutable_module_information()->set_description(fake_description);
    message.mutable_module_information()->set_load_languages(load_languages);
    const auto bytes = message.SerializeAsString();
    const auto capacity = *size;
    *size = static_cast<uint32_t>(bytes.size());
    if (buffer == nullptr) return 0;
    if (bytes.size() > capacity) return 1;
    std::memcpy(buffer, bytes.data(), bytes.size());
    return 0;
}

int CreateSensorInstance(int sensor_id, const void* data, uint32_t size) {
    if (!initialised) return 3;
    auto s = std::make_shared<sensor>();
    if (!decode(data, size, s->block)) return 2;
    trace("create " + std::to_string(sensor_id));
    const auto& kind = s->block.kind();
    if (kind != "counter_sensor" && kind != "topic_sensor") return 4;
    if (setting(s->block, "counting.counter.mode") == "refuse") {
        wire::ModuleMessage message;
        message.mutable_scan_result()->set_sensor_id(sensor_id);
        message.mutable_scan_result()->set_response_code(3);
        message.mutable_scan_result()->mutable_message()->set_text("Creation refused on purpose.");
        send(message);
        return 7;
    }
    const auto kept = s->block.persistent_data().find("count");
    if (kept != s->block.persistent_data().end()) s->count = std::atoll(kept->second.c_str());
    {
        std::lock_guard lock(module_mutex);
        if (!sensors.emplace(sensor_id, s).second) return 5;
    }
    log(6, sensor_id, "sensor created");
    return 0;
}

int ExecuteSensorScan(int sensor_id) {
    if (!initialised) return 3;
    const auto s = find(sensor_id);
    if (!s) return 6;
    trace("scan " + std::to_string(sensor_id));
    log(7, sensor_id, "scan");
    wire::ModuleMessage message;
    *message.mutable_scan_result() = scan_result(sensor_id, *s);
    send(message);
    return 0;
}

int DestroySensorInstance(int sensor_id) {
    if (!initialised) return 3;
    {
        std::lock_guard lock(module_mutex);
        if (sensors.erase(sensor_id) == 0) return 6;
    }
    trace("destroy " + std::to_string(sensor_id));
    log(6, sensor_id, "sensor destroyed");
    return 0;
}

int ExecuteMetaScan(int sensor_id, uint32_t selector, const void* data, uint32_t size) {
    if (!initialised) return 3;
    wire::SettingsBlock block;
    if (!decode(data, size, block)) return 2;
    if (selector == 2) {
        threshold = block.log_threshold();
        return 0;
    }
    if (selector != 1) return 8;
    if (block.kind() != "mqtt_notification") return 4;
    wire::ModuleMessage message;
    auto* response = message.mutable_notification_response();
    response->set_notification_id(sensor_id);
    const auto& n = block.notification();
    auto* line = response->add_lines();
    line->set_severity(7);
    line->set_text("connect " + setting(block, "connection.host") + ":" +
                   setting(block, "connection.port") + " as " +
                   setting(block, "connection.client_id") + " within " +
                   std::to_string(n.timeout_s()) + " s");
    line = response->add_lines();
    line->set_severity(6);
    line->set_text("publish \"" + n.message() + "\" to " + n.target());
    const bool delivered = n.target() != "forbidden";
    response->set_success(delivered);
    if (!delivered) response->mutable_message()->set_text("The topic is forbidden.");
    send(message);
    return delivered ? 0 : 9;
}

int ExecuteCheck(int check_id, const void* data, uint32_t size) {
    if (!initialised) return 3;
    wire::SettingsBlock block;
    if (!decode(data, size, block)) return 2;
    if (block.kind() != "fake_check") return 4;
    trace("check " + echo(block));
    wire::ModuleMessage message;
    message.mutable_check_result()->set_check_id(check_id);
    message.mutable_check_result()->set_success(setting(block, "host") != "unreachable.invalid");
    send(message);
    return 0;
}

}  // extern "C"
