#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>

#include "liblog/log_interface.h"
#include "libtavohelper/protocol.h"
#include "module/module_instance_adapter.h"
#include "module/mqtt_module.h"
#include "module/tavo_module_mqtt.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;

namespace {

// Empty until InitializeModule succeeds; the host serialises Initialize and Cleanup
// against every other call, so the exports read it without a lock.
std::unique_ptr<mqtt::module_instance_adapter> adapter;

using namespace corvanis::monitoring_modules::libtavohelper::protocol;

// A host resolves the exports by these types; a declaration that drifts must not build.
static_assert(std::is_same_v<decltype(&::GetApiLevel), get_api_level_fn>);
static_assert(std::is_same_v<decltype(&::InitializeModule), initialize_module_fn>);
static_assert(std::is_same_v<decltype(&::CleanupModule), cleanup_module_fn>);
static_assert(std::is_same_v<decltype(&::GetModuleInformation), get_module_information_fn>);
static_assert(
    std::is_same_v<decltype(&::GetModuleInformationSync), get_module_information_sync_fn>);
static_assert(std::is_same_v<decltype(&::CreateSensorInstance), create_sensor_instance_fn>);
static_assert(std::is_same_v<decltype(&::ExecuteSensorScan), execute_sensor_scan_fn>);
static_assert(std::is_same_v<decltype(&::DestroySensorInstance), destroy_sensor_instance_fn>);
static_assert(std::is_same_v<decltype(&::ExecuteMetaScan), execute_meta_scan_fn>);
static_assert(std::is_same_v<decltype(&::ExecuteCheck), execute_check_fn>);

// The one exception barrier: nothing thrown inside a call may reach the host.
template <class F>
int guarded(const char* name, int on_exception, F&& call) noexcept {
    try {
        return call();
    } catch (const std::exception& e) {
        try {
            if (adapter) {
                adapter->log(corvanis::monitoring_modules::liblog::to_int(
                                 corvanis::monitoring_modules::liblog::severity::error),
                             std::string(name) + " failed: " + e.what());
            }
        } catch (...) {
        }
    } catch (...) {
    }
    return on_exception;
}

template <class F>
int forward(const char* name, F&& call) noexcept {
    if (!adapter) {
        return result_not_initialized;
    }
    return guarded(name, result_exception, std::forward<F>(call));
}

}  // namespace

extern "C" {

int GetApiLevel(void) {
    return api_level;
}

int InitializeModule(uint64_t host_context, mqtt_module_callback callback) {
    return guarded("InitializeModule", result_failure, [&] {
        if (adapter) {
            adapter->log(7, "InitializeModule called on already initialized module.");
            return result_failure;
        }
        adapter = std::make_unique<mqtt::module_instance_adapter>(
            std::make_unique<mqtt::TavoModuleMQTT>(host_context, callback));
        return result_ok;
    });
}

int CleanupModule(void) {
    // Taken out first, so that the module counts as cleaned up even when the teardown throws.
    auto doomed = std::move(adapter);
    try {
        doomed.reset();
    } catch (...) {
    }
    return result_ok;
}

void GetModuleInformation(bool load_languages) {
    forward("GetModuleInformation", [&] {
        adapter->get_module_information(load_languages);
        return result_ok;
    });
}

int GetModuleInformationSync(void* buffer, uint32_t* size, bool load_languages) {
    if (size == nullptr) {
        return result_failure;
    }
    if (!adapter) {
        return result_exception;
    }
    return guarded("GetModuleInformationSync", result_failure, [&] {
        const auto bytes = adapter->get_module_information_as_bytes(load_languages);
        const uint32_t capacity = *size;
        // The needed size is told even when the buffer is too small: the host asks again.
        *size = static_cast<uint32_t>(bytes.size());
        if (buffer == nullptr) {
            return result_ok;
        }
        if (bytes.size() > capacity) {
            return result_failure;
        }
        std::memcpy(buffer, bytes.data(), bytes.size());
        return result_ok;
    });
}

int CreateSensorInstance(int sensor_id, const void* data, uint32_t size) {
    return forward("CreateSensorInstance",
                   [&] { return adapter->create_sensor_instance(sensor_id, data, size); });
}

int ExecuteSensorScan(int sensor_id) {
    return forward("ExecuteSensorScan", [&] { return adapter->execute_sensor_scan(sensor_id); });
}

int DestroySensorInstance(int sensor_id) {
    return forward("DestroySensorInstance",
                   [&] { return adapter->destroy_sensor_instance(sensor_id); });
}

int ExecuteMetaScan(int sensor_id, uint32_t selector, const void* data, uint32_t size) {
    return forward("ExecuteMetaScan",
                   [&] { return adapter->execute_meta_scan(sensor_id, selector, data, size); });
}

int ExecuteCheck(int check_id, const void* data, uint32_t size) {
    return forward("ExecuteCheck", [&] { return adapter->execute_check(check_id, data, size); });
}

}  // extern "C"
