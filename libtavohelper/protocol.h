#pragma once
// What a host and a module agree on across the C boundary: the API level, the result codes
// of the ten exports, the meta-scan selectors and the exports' function types. Header-only, so
// a host can include it without linking the framework.

#include <cstdint>
#include <string_view>

namespace corvanis::monitoring_modules::libtavohelper::protocol {

inline constexpr int api_level = 6;

// Codes 0 to 3 are answered by the exports themselves, the others by the dispatcher.
enum result_code : int {
    result_ok = 0,
    result_failure = 1,               // initialisation or size failure
    result_exception = 2,             // an exception inside the call
    result_not_initialized = 3,       // InitializeModule has not succeeded
    result_unknown_kind = 4,          // no sensor, check or notification of that kind
    result_id_in_use = 5,             // a sensor with that id exists already
    result_unknown_id = 6,            // no sensor with that id
    result_creation_failed = 7,       // the reason was sent as an error result
    result_unsupported_selector = 8,  // meta-scan selector not offered
    result_notification_failed = 9,   // the response with the failure was sent
    result_notification_busy = 10,    // a notification with that id is still running
};

// The code's meaning for an operator; empty for a code outside the protocol.
constexpr std::string_view result_code_meaning(int code) {
    switch (code) {
        case result_ok:
            return "done";
        case result_failure:
            return "initialisation or size failure";
        case result_exception:
            return "an exception inside the call";
        case result_not_initialized:
            return "the module is not initialised";
        case result_unknown_kind:
            return "no sensor, check or notification of this kind";
        case result_id_in_use:
            return "a sensor with this id exists already";
        case result_unknown_id:
            return "no sensor with this id";
        case result_creation_failed:
            return "could not be created";
        case result_unsupported_selector:
            return "meta-scan selector not offered";
        case result_notification_failed:
            return "the notification failed";
        case result_notification_busy:
            return "a notification with this id is still running";
        default:
            return {};
    }
}

enum meta_scan_selector : std::uint32_t {
    selector_sensor = 0,         // a sensor's own meta scan
    selector_notification = 1,   // send the notification request of the block
    selector_log_threshold = 2,  // set the severity threshold of both logs
};

// The exports' types, for a host that resolves them with dlsym. The module checks its
// declarations against these at compile time.
using message_callback = void (*)(std::uint64_t host_context, const void* bytes,
                                  std::uint32_t size);
using get_api_level_fn = int (*)();
using initialize_module_fn = int (*)(std::uint64_t host_context, message_callback callback);
using cleanup_module_fn = int (*)();
using get_module_information_fn = void (*)(bool load_languages);
using get_module_information_sync_fn = int (*)(void* buffer, std::uint32_t* size,
                                               bool load_languages);
using create_sensor_instance_fn = int (*)(int sensor_id, const void* data, std::uint32_t size);
using execute_sensor_scan_fn = int (*)(int sensor_id);
using destroy_sensor_instance_fn = int (*)(int sensor_id);
using execute_meta_scan_fn = int (*)(int sensor_id, std::uint32_t selector, const void* data,
                                     std::uint32_t size);
using execute_check_fn = int (*)(int check_id, const void* data, std::uint32_t size);

}  // namespace corvanis::monitoring_modules::libtavohelper::protocol
