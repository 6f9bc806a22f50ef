#pragma once

#include <string>

namespace corvanis::monitoring_modules::libtavohelper::settings {

// A secret setting value (password, key password, API key). It has no stream
// operator and no implicit conversion, so it cannot end up in a log line by accident;
// plain() is for the few places that must hand it to a library.
class secure_string {
  public:
    secure_string() = default;
    explicit secure_string(std::string value) : value_(std::move(value)) {}

    const std::string& plain() const noexcept { return value_; }
    bool empty() const noexcept { return value_.empty(); }
    bool operator==(const secure_string&) const = default;

    static constexpr const char* mask = "********";

  private:
    std::string value_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
