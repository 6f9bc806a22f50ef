#include "host/module_host.h"

#include <vector>

#include "host/errors.h"
#include "libtavohelper/protocol.h"

#ifndef TAVO_PROBE_MODULE_DIR
#define TAVO_PROBE_MODULE_DIR "../lib/tavo-probe"
#endif

namespace corvanis::monitoring_modules::host {

namespace {

namespace protocol = libtavohelper::protocol;

// A module answers a call only after it sent the call's message; the grace covers one that does
// not.
constexpr std::chrono::milliseconds result_grace{2000};

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
    if (const auto meaning = protocol::result_code_meaning(code); !meaning.empty()) {
        return std::string(meaning);
    }
    return "unknown result code " + std::to_string(code);
}

std::filesystem::path default_module_path() {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return "libMQTT.so";
    const auto dir = exe.parent_path();
    // Installed: the private library folder; in a build tree: ../lib; else beside the program.
    const std::filesystem::path candidates[] = {
        (dir / TAVO_PROBE_MODULE_DIR / "libMQTT.so").lexically_normal(),
        (dir / ".." / "lib" / "libMQTT.so").lexically_normal(),
        dir / "libMQTT.so",
    };
    for (const auto& candidate : candidates) {
        if (std::filesystem::exists(candidate)) return candidate;
    }
    return candidates[0];
}

// ---- module_inbox -------------------------------------------------------------

module_inbox::module_inbox(persistent_data_handler on_persistent_data, log_handler on_log)
    : on_persistent_data_(std::move(on_persistent_data)), on_log_(std::move(on_log)) {}

void module_inbox::deliver(const void* bytes, std::uint32_t size) {
    wire::ModuleMessage message;
    if (!message.ParseFromArray(bytes, static_cast<int>(size))) return;
    // Logs and persistent data go to their handlers at once; no call waits for them.
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
    try {
        library_ = std::make_unique<modulehost::module_library>(
            library,
            [&inbox](const void* bytes, std::uint32_t size) { inbox.deliver(bytes, size); });
    } catch (const modulehost::load_error& e) {
        throw host_error(e.what());
    }
}

module_session::~module_session() = default;

std::string module_session::module_information() {
    if (const auto bytes = library_->module_information_now(true); !bytes.empty()) {
        wire::ModuleMessage message;
        if (message.ParseFromString(bytes) && message.has_module_information()) {
            return message.module_information().description();
        }
    }
    library_->request_module_information(true);
    if (auto info = inbox_.take_module_information(result_grace)) return info->description();
    throw host_error("the module sends no description document");
}

int module_session::set_log_threshold(int severity) {
    wire::SettingsBlock block;
    block.set_log_threshold(severity);
    return library_->meta_scan(0, protocol::selector_log_threshold, block);
}

call_outcome<wire::ScanResult> module_session::create_sensor(int id,
                                                             const wire::SettingsBlock& block) {
    inbox_.discard_scan_results(id);  // an earlier instance's result must not pass for this one's
    const int code = library_->create(id, block);
    // A refused sensor explains itself in an error result.
    return {code, inbox_.take_scan_result(id, std::chrono::milliseconds(0))};
}

wire::ScanResult module_session::scan(int id) {
    const int code = library_->scan(id);
    const bool answered = code == protocol::result_ok;
    if (auto result =
            inbox_.take_scan_result(id, answered ? result_grace : std::chrono::milliseconds(0))) {
        return std::move(*result);
    }
    if (answered) return failed_scan(id, "The module sent no result for this scan.");
    return failed_scan(id, "ExecuteSensorScan answered " + std::to_string(code) + ": " +
                               describe_result_code(code));
}

int module_session::destroy_sensor(int id) {
    const int code = library_->destroy(id);
    inbox_.discard_scan_results(id);
    return code;
}

call_outcome<wire::CheckResult> module_session::check(int id, const wire::SettingsBlock& block) {
    const int code = library_->check(id, block);
    const bool answered = code == protocol::result_ok;
    return {code,
            inbox_.take_check_result(id, answered ? result_grace : std::chrono::milliseconds(0))};
}

call_outcome<wire::NotificationResponse> module_session::notify(int id,
                                                                const wire::SettingsBlock& block) {
    const int code = library_->meta_scan(id, protocol::selector_notification, block);
    const bool answered =
        code == protocol::result_ok || code == protocol::result_notification_failed;
    return {code, inbox_.take_notification_response(
                      id, answered ? result_grace : std::chrono::milliseconds(0))};
}

}  // namespace corvanis::monitoring_modules::host
