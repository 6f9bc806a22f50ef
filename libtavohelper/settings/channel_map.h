#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "libtavohelper/channels/dynamic_channel.h"

namespace corvanis::monitoring_modules::libtavohelper::settings {

// The channel definitions of one sensor instance, plus the ids the host already
// knows. Thread-safe.
class channel_map {
  public:
    explicit channel_map(std::set<int> known_to_runtime = {})
        : known_(std::move(known_to_runtime)) {}

    // Throws channel_already_defined when the id has another definition;
    // registering the same definition again is a no-op.
    void register_definition(const channels::dynamic_channel& channel);
    bool is_definition_registered(const channels::dynamic_channel& channel) const;
    bool is_known_to_runtime(const int& id) const;
    // Throws channel_not_defined.
    channels::dynamic_channel_options definition(int id) const;
    channels::channel_kind kind_of(int id) const;
    std::vector<channels::dynamic_channel> definitions() const;
    // The definitions as a scan result carries them on the wire (repeated field bytes),
    // encoded once per change: every scan sends them, and they rarely change.
    std::shared_ptr<const std::string> encoded_definitions() const;

  private:
    mutable std::mutex mutex_;
    std::map<int, channels::dynamic_channel_options> channels_;  // guarded by mutex_
    mutable std::shared_ptr<const std::string> encoded_;         // guarded by mutex_
    std::set<int> known_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
