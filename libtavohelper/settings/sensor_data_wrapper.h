#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "libtavohelper/channels/dynamic_channel.h"
#include "libtavohelper/notifications/notification.h"
#include "libtavohelper/settings/secure_string.h"

namespace corvanis::monitoring_modules::libtavohelper::settings {

// The decoded settings block that a host sends with create, meta-scan and check
// calls. Immutable after construction, so it may be read from any thread.
class sensor_data_wrapper {
  public:
    // Throws message_deserialization_failed when the bytes are not a settings block.
    sensor_data_wrapper(const void* data, unsigned int size);
    // For hosts and tests that build a block in memory.
    sensor_data_wrapper(std::string kind, std::map<std::string, std::string> settings,
                        std::map<std::string, std::string> secure_settings = {});
    ~sensor_data_wrapper();
    sensor_data_wrapper(const sensor_data_wrapper&);
    sensor_data_wrapper& operator=(const sensor_data_wrapper&);

    const std::string& kind() const;
    // Plain lookup; throws setting_not_available when the key is absent.
    const std::string& get_value(const std::string& key) const;
    // Secret lookup: the secret settings first, then the plain ones; throws
    // setting_not_available when the key is in neither.
    secure_string get_secure_value(const std::string& key) const;
    bool contains(const std::string& key) const;

    // Every setting as a JSON object, secret values replaced by a mask: the secure settings,
    // passwords, API keys, the client key and any value holding a PEM private key.
    std::string to_json() const;
    std::set<int> get_channels() const;
    std::unordered_map<std::string, std::string> get_persistent_data() const;
    std::optional<notifications::request> get_notification_request() const;
    // The severity threshold asked for by the log configuration selector; 0 if unset.
    int get_log_threshold() const;

    // The block serialised again, as a host would send it.
    std::vector<char> serialize() const;
    void set_notification_request(const notifications::request& req);
    void set_persistent_data(const std::unordered_map<std::string, std::string>& data);

  private:
    struct impl;
    std::unique_ptr<impl> impl_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
