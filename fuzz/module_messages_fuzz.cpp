// What tavo-probe decodes from a module, which is foreign code to the host: the messages its
// callback receives, and the description document. Every message that decodes goes through
// the host's whole display path: views, JSON lines, tables, status lines, the status board,
// the Prometheus text and the status API.
#include <chrono>
#include <string>

#include <google/protobuf/stubs/logging.h>

#include "fuzz/fuzz_support.h"
#include "host/description.h"
#include "host/errors.h"
#include "host/metrics.h"
#include "host/module_host.h"
#include "host/output.h"
#include "host/status_board.h"
#include "host/status_page.h"
#include "module/description/description.h"

namespace cmm = corvanis::monitoring_modules;
namespace host = cmm::host;

namespace {

const host::description& shipped_description() {
    static const auto doc = host::description::parse(cmm::mqtt::module_description());
    return doc;
}

void show(const host::scan_view& view) {
    (void)host::json_line(view);
    (void)host::table_block(view, "12:00:00", {});
    (void)host::nagios_line(view, {});
    host::status_board board;
    board.add_sensor(view.sensor_id, view.name, view.kind, view.display);
    board.record(view);
    std::string metrics;
    host::render_metrics(board, {"1", "1", 6, ""}, metrics);
    (void)host::status_json(board, {"1", "1", 6, ""});
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Messages that do not decode are expected here; protobuf's line for each only slows the run.
    google::protobuf::SetLogHandler(
        [](google::protobuf::LogLevel, const char*, int, const std::string&) {});
    (void)shipped_description();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    if (data[0] == 'D') {  // a description document of a module
        try {
            (void)host::description::parse(
                std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
        } catch (const host::host_error&) {
        }
        return 0;
    }
    host::module_inbox inbox([](const auto&) {}, [](const auto&) {});
    inbox.deliver(data, static_cast<std::uint32_t>(size));
    corvanis::tavo::wire::ModuleMessage message;
    if (!message.ParseFromArray(data, static_cast<int>(size))) return 0;
    for (const int id : {message.scan_result().sensor_id(), message.check_result().check_id(),
                         message.notification_response().notification_id()}) {
        if (const auto scan = inbox.take_scan_result(id, std::chrono::milliseconds(0))) {
            for (const auto* doc :
                 {&shipped_description(), static_cast<const host::description*>(nullptr)})
                show(host::make_scan_view(*scan, "statistics_sensor", doc));
        }
        if (const auto check = inbox.take_check_result(id, std::chrono::milliseconds(0))) {
            (void)host::json_line(*check);
            (void)host::table_block(*check, "mqtt_connect_check", "12:00:00", {});
            (void)host::nagios_line(*check, "mqtt_connect_check");
        }
        if (const auto response =
                inbox.take_notification_response(id, std::chrono::milliseconds(0))) {
            (void)host::json_line(*response);
            (void)host::table_block(*response, "topic", "12:00:00", {});
        }
    }
    return 0;
}
