#pragma once

#include <optional>
#include <string>
#include <unordered_map>

namespace corvanis::monitoring_modules::libtavohelper::settings {

// What the host keeps for one sensor between scans. Not synchronised: a sensor
// uses it from its scan thread only.
class persistent_data_storage {
  public:
    persistent_data_storage() = default;
    explicit persistent_data_storage(std::unordered_map<std::string, std::string> data)
        : data_(std::move(data)) {}

    std::string& operator[](const std::string& key) { return data_[key]; }
    // Throws std::out_of_range when absent.
    const std::string& at(const std::string& key) const { return data_.at(key); }
    std::optional<std::string> at_opt(const std::string& key) const {
        const auto it = data_.find(key);
        return it == data_.end() ? std::nullopt : std::optional<std::string>(it->second);
    }
    bool exists(const std::string& key) const { return data_.count(key) != 0; }

  private:
    std::unordered_map<std::string, std::string> data_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
