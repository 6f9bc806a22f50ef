// The settings block through the module's own decoding and the settings readers of every
// kind, without a network. Half the inputs are raw bytes; the other half are complete
// settings of one kind, as a host form sends them, with a few values replaced, serialised and
// decoded again, so that the readers see well-formed blocks with hostile values.
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <google/protobuf/stubs/logging.h>

#include "fuzz/fuzz_support.h"
#include "libtavohelper/settings/sensor_data_wrapper.h"
#include "mqtt/settings/connection_settings.h"
#include "mqtt/settings/subscribe_custom_settings.h"
#include "mqtt/settings/testing/sample_settings.h"

namespace cmm = corvanis::monitoring_modules;
namespace s = cmm::mqtt::settings;
using cmm::libtavohelper::settings::sensor_data_wrapper;

namespace {

const char* const kinds[] = {"statistics_sensor", "roundtrip_sensor", "subscribe_custom_sensor",
                             "mqtt_connect_check", "mqtt_notification"};

// An empty integer or scale-factor setting ends reading with std::bad_optional_access, as
// the readers document; every other failure must be the library's own.
template <typename Read>
void reading(Read&& read) {
    fuzz::expecting_library_errors([&] {
        try {
            read();
        } catch (const std::bad_optional_access&) {
        }
    });
}

void read_every_kind(const sensor_data_wrapper& data) {
    (void)data.to_json();
    (void)data.get_log_threshold();
    (void)data.get_persistent_data();
    (void)data.get_notification_request();
    reading([&] { (void)s::to_client_settings(s::statistics_sensor(data)); });
    reading([&] { (void)s::to_client_settings(s::roundtrip_sensor(data)); });
    reading([&] { (void)s::to_client_settings(s::mqtt_connect_check(data)); });
    reading([&] { (void)s::to_client_settings(s::subscribe_custom_sensor(data)); });
    reading([&] { (void)s::to_client_settings(s::mqtt_notification(data), 5); });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Refused blocks are expected here; protobuf's log line for each only slows the run.
    google::protobuf::SetLogHandler(
        [](google::protobuf::LogLevel, const char*, int, const std::string&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    if (in.ConsumeBool()) {
        const auto bytes = in.ConsumeRemainingBytes<char>();
        std::optional<sensor_data_wrapper> block;
        if (fuzz::expecting_library_errors(
                [&] { block.emplace(bytes.data(), static_cast<unsigned>(bytes.size())); }))
            read_every_kind(*block);
        return 0;
    }
    const std::string kind = kinds[in.ConsumeIntegralInRange<std::size_t>(0, std::size(kinds) - 1)];
    auto values = cmm::mqtt::testing::sample_settings(kind);
    std::vector<std::string> keys;
    for (const auto& [k, v] : values) keys.push_back(k);
    for (int changes = in.ConsumeIntegralInRange(1, 4); changes > 0 && in.remaining_bytes();
         --changes) {
        const auto& key = keys[in.ConsumeIntegralInRange<std::size_t>(0, keys.size() - 1)];
        values[key] = in.ConsumeRandomLengthString(64);
    }
    const auto wire = sensor_data_wrapper(kind, values).serialize();
    // A value that is not UTF-8 makes the block undecodable, which is a refusal, not a fault.
    std::optional<sensor_data_wrapper> block;
    if (fuzz::expecting_library_errors(
            [&] { block.emplace(wire.data(), static_cast<unsigned>(wire.size())); }))
        read_every_kind(*block);
    return 0;
}
