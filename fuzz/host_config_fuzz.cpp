// tavo-probe's YAML config loader and the settings layering on what it loads, checked against
// the shipped description document as `run` and `validate` do it. Files are never read: a
// config that names one (KEY_file:) is passed over.
#include <optional>
#include <string>

#include "fuzz/fuzz_support.h"
#include "host/config.h"
#include "host/description.h"
#include "host/errors.h"
#include "host/probe.h"
#include "host/settings.h"
#include "module/description/description.h"

namespace cmm = corvanis::monitoring_modules;
namespace host = cmm::host;

namespace {

std::optional<std::string> test_environment(const std::string& name) {
    if (name == "HOST") return "broker.local";
    if (name == "EMPTY") return "";
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string yaml(reinterpret_cast<const char*>(data), size);
    if (yaml.find("_file") != std::string::npos) return 0;
    static const auto doc = host::description::parse(cmm::mqtt::module_description());
    try {
        const auto config = host::parse_config(yaml, "fuzz.yaml", test_environment, "/nonexistent");
        for (const auto& sensor : config.sensors) {
            try {
                const auto layers = host::settings_layers(doc, &config, &sensor.settings, "sensor",
                                                          {}, &sensor.where);
                const auto schema = host::sensor_schema(doc, sensor.kind);
                const auto values = host::resolve_settings(schema, layers);
                host::validate_settings(schema, values);
                (void)host::make_block(schema, values);
            } catch (const host::host_error&) {
            }
        }
    } catch (const host::host_error&) {
    }
    return 0;
}
