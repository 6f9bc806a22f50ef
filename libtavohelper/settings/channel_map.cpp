#include "libtavohelper/settings/channel_map.h"

#include "libtavohelper/errors.h"

namespace corvanis::monitoring_modules::libtavohelper::settings {

using utils::exceptions::channel_error;

void channel_map::register_definition(const channels::dynamic_channel& channel) {
    std::lock_guard lock(mutex_);
    const auto [it, inserted] = channels_.try_emplace(channel.id(), channel.options());
    if (!inserted && !(it->second == channel.options())) {
        throw channel_error(
            messages::channel_already_defined()(std::to_string(channel.id()), it->second.name));
    }
}

bool channel_map::is_definition_registered(const channels::dynamic_channel& channel) const {
    std::lock_guard lock(mutex_);
    const auto it = channels_.find(channel.id());
    return it != channels_.end() && it->second == channel.options();
}

bool channel_map::is_known_to_runtime(const int& id) const {
    return known_.count(id) != 0;
}

channels::dynamic_channel_options channel_map::definition(int id) const {
    std::lock_guard lock(mutex_);
    const auto it = channels_.find(id);
    if (it == channels_.end()) {
        throw channel_error(messages::channel_not_defined()(std::to_string(id)));
    }
    return it->second;
}

std::vector<channels::dynamic_channel> channel_map::definitions() const {
    std::lock_guard lock(mutex_);
    std::vector<channels::dynamic_channel> out;
    for (const auto& [id, options] : channels_) out.emplace_back(id, options);
    return out;
}

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
