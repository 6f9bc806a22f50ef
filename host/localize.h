#pragma once

#include <string>

#include "host/description.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::host {

// Results as the module sent them, their texts turned into `language` where the module
// has a translation for the message's key (arguments filled in), else left as sent.
void localize(tavo::wire::I18nMessage& message, const description& doc,
              const std::string& language);
void localize(tavo::wire::ScanResult& result, const description& doc, const std::string& language);
void localize(tavo::wire::CheckResult& result, const description& doc, const std::string& language);
void localize(tavo::wire::NotificationResponse& response, const description& doc,
              const std::string& language);

}  // namespace corvanis::monitoring_modules::host
