#pragma once

#include <string>

namespace corvanis::monitoring_modules::libtavohelper::channels {

// Codes as the host knows them.
enum class channel_kind : int { none = 0, integer = 1, counter = 2, floating = 3 };

// Whether set_value takes a whole number or a double for a channel of this kind.
enum class value_mode { integer, floating };

inline value_mode mode_of(channel_kind kind) {
    return kind == channel_kind::floating ? value_mode::floating : value_mode::integer;
}

struct dynamic_channel_options {
    std::string key;   // catalogue key of the name, e.g. "channel.active_topics"
    std::string name;  // English or user-given display name
    std::string unit;
    channel_kind kind = channel_kind::integer;
    double scale_factor = 1.0;
    std::string lookup;  // lookup name for state channels, else empty

    bool operator==(const dynamic_channel_options&) const = default;
};

class dynamic_channel {
  public:
    dynamic_channel(int id, dynamic_channel_options options)
        : id_(id), options_(std::move(options)) {}
    int id() const noexcept { return id_; }
    const dynamic_channel_options& options() const noexcept { return options_; }

  private:
    int id_;
    dynamic_channel_options options_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::channels
