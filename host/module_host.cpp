#include "host/module_host.h"

#include <dlfcn.h>

#include <vector>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr int supported_api_level = 6;
constexpr unsigned int selector_notification = 1;
constexpr unsigned int selector_log_threshold = 2;
// A module answers a call only after it sent the call's message; the grace covers one that does
// not.
constexpr std::chrono::milliseconds result_grace{2000};

std::vector<char> bytes_of(const wire::SettingsBlock& block) {
    std::vector<char> bytes(block.ByteSizeLong());
    block.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

wire::ScanResult failed_scan(int id, const std::string& text) {
    wire::ScanResult result;
    result.set_sensor_id(id);
    result.set_response_code(3);
    result.mutable_message()->set_text(text);
    result.mutable_message()->set_default_text(text);
    return result;
}

}  // namespace

std::string describe_result_code(int code) {
    switch (code) {
        case 0:
            return "done";
        case 1:
            return "initialisation or size failure";
        case 2:
            return "an exception inside the call";
        case 3:
            return "the module is not initialised";
        case 4:
            return "no sensor, check or notification of this kind";
        case 5:
            return "a sensor with this id exists already";
        case 6:
            return "no sensor with this id";
        case 7:
            return "could not be created";
        case 8:
            return "meta-scan selector not offered";
        case 9:
            return "the notification failed";
        case 10:
            return "a notification with this id is still running";
        default:
            return "unknown result code " + std::to_string(code);
    }
}

std::filesystem::path default_module_path() {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return "libMQTT.so";
    const auto dir = exe.parent_path();
    const auto beside_lib = (dir / ".." / "lib" / "libMQTT.so").lexically_normal();
    if (std::filesystem::exists(beside_lib) || !std::filesystem::exists(dir / "libMQTT.so"))
        return beside_lib;
    return dir / "libMQTT.so";
}

// ---- module_inbox -------------------------------------------------------------

module_inbox::module_inbox(persistent_data_handler on_persistent_data, log_handler on_log)
    : on_persistent_data_(std::move(on_persistent_data)), on_log_(std::move(on_log)) {}

void module_inbox::deliver(const void* bytes, std::uint32_t size) {
    wire::ModuleMessage message;
    if (!message.ParseFromArray(bytes, static_cast<int>(size))) return;
    switch (message.body_case()) {
        case wire::ModuleMessage::kLog:
            if (on_log_) on_log_(message.log());
            return;
        case wire::ModuleMessage::kPersistentData:
            if (on_persistent_data_) on_persistent_data_(message.persistent_data());
            return;
        default:
            break;
    }
    {
        std::lock_guard lock(mutex_);
        switch (message.body_case()) {
            case wire::ModuleMessage::kScanResult: {
                const int id = message.scan_result().sensor_id();
                scan_results_[id].push_back(std::move(*message.mutable_scan_result()));
                break;
            }
            case wire::ModuleMessage::kCheckResult: {
                const int id = message.check_result().check_id();
                check_results_[id].push_back(std::move(*message.mutable_check_result()));
                break;
            }
            case wire::ModuleMessage::kNotificationResponse: {
                const int id = message.notification_response().notification_id();
                notification_responses_[id].push_back(
                    std::move(*message.mutable_notification_response()));
                break;
            }
            case wire::ModuleMessage::kModuleInformation:
                module_information_[0].push_back(std::move(*message.mutable_module_information()));
                break;
            default:
                return;
        }
    }
    arrived_.notify_all();
}

template <class Message>
std::optional<Message> module_inbox::take(std::map<int, std::deque<Message>>& box, int id,
                                          std::chrono::milliseconds wait) {
    std::unique_lock lock(mutex_);
    const bool found = arrived_.wait_for(lock, wait, [&] {
        const auto it = box.find(id);
        return it != box.end() && !it->second.empty();
    });
    if (!found) return std::nullopt;
    auto& queue = box[id];
    Message message = std::move(queue.front());
    queue.pop_front();
    return message;
}

std::optional<wire::ScanResult> module_inbox::take_scan_result(int sensor_id,
                                                               std::chrono::milliseconds wait) {
    return take(scan_results_, sensor_id, wait);
}

std::optional<wire::CheckResult> module_inbox::take_check_result(int check_id,
                                                                 std::chrono::milliseconds wait) {
    return take(check_results_, check_id, wait);
}

std::optional<wire::NotificationResponse> module_inbox::take_notification_response(
    int id, std::chrono::milliseconds wait) {
    return take(notification_responses_, id, wait);
}

std::optional<wire::ModuleInformation> module_inbox::take_module_information(
    std::chrono::milliseconds wait) {
    return take(module_information_, 0, wait);
}

void module_inbox::discard_scan_results(int sensor_id) {
    std::lock_guard lock(mutex_);
    scan_results_.erase(sensor_id);
}

// ---- module_session -----------------------------------------------------------

module_session::module_session(const std::filesystem::path& library, module_inbox& inbox)
    : inbox_(inbox) {
    if (!std::filesystem::exists(library)) {
        throw host_error("cannot load the module: " + library.string() +
                         " does not exist (use --module PATH)");
    }
    handle_ = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw host_error(std::string("cannot load the module: ") + dlerror());
    const auto resolve = [&](auto& function, const char* name) {
        function =
            reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(handle_, name));
        if (function == nullptr) {
            throw host_error("cannot load the module: " + library.string() + " does not export " +
                             name);
        }
    };
    resolve(get_api_level_, "GetApiLevel");
    resolve(initialize_, "InitializeModule");
    resolve(cleanup_, "CleanupModule");
    resolve(get_information_, "GetModuleInformation");
    resolve(get_information_sync_, "GetModuleInformationSync");
    resolve(create_, "CreateSensorInstance");
    resolve(scan_, "ExecuteSensorScan");
    resolve(destroy_, "DestroySensorInstance");
    resolve(meta_scan_, "ExecuteMetaScan");
    resolve(check_, "ExecuteCheck");
    api_level_ = get_api_level_();
    if (api_level_ != supported_api_level) {
        throw host_error("cannot use the module: it speaks API level " +
                         std::to_string(api_level_) + ", tavo-probe speaks " +
                         std::to_string(supported_api_level));
    }
    if (const int code =
            initialize_(reinterpret_cast<std::uint64_t>(&inbox_), &module_session::on_message);
        code != 0) {
        throw host_error("the module refused to initialise (InitializeModule answered " +
                         std::to_string(code) + ")");
    }
}

module_session::~module_session() {
    cleanup_();
}

void module_session::on_message(std::uint64_t context, const void* bytes,
                                std::uint32_t size) noexcept {
    try {
        reinterpret_cast<module_inbox*>(context)->deliver(bytes, size);
    } catch (...) {
        // An exception must not unwind into the module's thread; the message is lost.
    }
}

std::string module_session::module_information() {
    std::uint32_t size = 0;
    if (get_information_sync_(nullptr, &size, true) == 0 && size > 0) {
        std::vector<char> buffer(size);
        if (get_information_sync_(buffer.data(), &size, true) == 0) {
            wire::ModuleMessage message;
            if (message.ParseFromArray(buffer.data(), static_cast<int>(size)) &&
                message.has_module_information()) {
                return message.module_information().description();
            }
        }
    }
    get_information_(true);
    if (auto info = inbox_.take_module_information(result_grace)) return info->description();
    throw host_error("the module sends no description document");
}

int module_session::set_log_threshold(int severity) {
    wire::SettingsBlock block;
    block.set_log_threshold(severity);
    const auto bytes = bytes_of(block);
    return meta_scan_(0, selector_log_threshold, bytes.data(),
                      static_cast<std::uint32_t>(bytes.size()));
}

call_outcome<wire::ScanResult> module_session::create_sensor(int id,
                                                             const wire::SettingsBlock& block) {
    inbox_.discard_scan_results(id);
    const auto bytes = bytes_of(block);
    const int code = create_(id, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    // A refused sensor explains itself in an error result.
    return {code, inbox_.take_scan_result(id, std::chrono::milliseconds(0))};
}

wire::ScanResult module_session::scan(int id) {
    const int code = scan_(id);
    if (auto result =
            inbox_.take_scan_result(id, code == 0 ? result_grace : std::chrono::milliseconds(0))) {
        return std::move(*result);
    }
    if (code == 0) return failed_scan(id, "The module sent no result for this scan.");
    return failed_scan(id, "ExecuteSensorScan answered " + std::to_string(code) + ": " +
                               describe_result_code(code));
}

int module_session::destroy_sensor(int id) {
    const int code = destroy_(id);
    inbox_.discard_scan_results(id);
    return code;
}

call_outcome<wire::CheckResult> module_session::check(int id, const wire::SettingsBlock& block) {
    const auto bytes = bytes_of(block);
    const int code = check_(id, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return {code,
            inbox_.take_check_result(id, code == 0 ? result_grace : std::chrono::milliseconds(0))};
}

call_outcome<wire::NotificationResponse> module_session::notify(int id,
                                                                const wire::SettingsBlock& block) {
    const auto bytes = bytes_of(block);
    const int code = meta_scan_(id, selector_notification, bytes.data(),
                                static_cast<std::uint32_t>(bytes.size()));
    const bool answered = code == 0 || code == 9;
    return {code, inbox_.take_notification_response(
                      id, answered ? result_grace : std::chrono::milliseconds(0))};
}

}  // namespace corvanis::monitoring_modules::host
