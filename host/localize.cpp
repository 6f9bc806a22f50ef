#include "host/localize.h"

#include "host/output.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr const char* english = "English";

}  // namespace

void localize(tavo::wire::I18nMessage& message, const description& doc,
              const std::string& language) {
    if (language.empty() || language == english || message.key().empty()) return;
    const auto pattern = doc.text(message.key(), language);
    if (pattern.empty() || pattern == doc.text(message.key(), english)) return;
    auto translated = message;
    translated.clear_text();
    translated.set_default_text(pattern);
    message.set_text(render_text(translated));
}

void localize(tavo::wire::ScanResult& result, const description& doc, const std::string& language) {
    if (language.empty() || language == english) return;
    if (result.has_message()) localize(*result.mutable_message(), doc, language);
    // Channels the module names by key only are shown by their text.
    for (auto& definition : *result.mutable_definitions()) {
        if (definition.name().empty() && !definition.key().empty()) {
            if (const auto name = doc.text(definition.key(), language); !name.empty())
                definition.set_name(name);
        }
    }
}

void localize(tavo::wire::CheckResult& result, const description& doc,
              const std::string& language) {
    if (result.has_message()) localize(*result.mutable_message(), doc, language);
}

void localize(tavo::wire::NotificationResponse& response, const description& doc,
              const std::string& language) {
    if (response.has_message()) localize(*response.mutable_message(), doc, language);
}

}  // namespace corvanis::monitoring_modules::host
