#include "libtavohelper/settings/channel_map.h"

#include "libtavohelper/errors.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::libtavohelper::settings {

using utils::exceptions::channel_error;

void channel_map::register_definition(const channels::dynamic_channel& channel) {
    std::lock_guard lock(mutex_);
    const auto [it, inserted] = channels_.try_emplace(channel.id(), channel.options());
    if (!inserted && !(it->second == channel.options())) {
        throw channel_error(
            messages::channel_already_defined()(std::to_string(channel.id()), it->second.name));
    }
    if (inserted) encoded_.reset();
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

channels::channel_kind channel_map::kind_of(int id) const {
    std::lock_guard lock(mutex_);
    const auto it = channels_.find(id);
    if (it == channels_.end()) {
        throw channel_error(messages::channel_not_defined()(std::to_string(id)));
    }
    return it->second.kind;
}

std::shared_ptr<const std::string> channel_map::encoded_definitions() const {
    std::lock_guard lock(mutex_);
    if (encoded_) return encoded_;
    // A message holding only the repeated field serialises to exactly that field's bytes.
    tavo::wire::ScanResult only_definitions;
    for (const auto& [id, o] : channels_) {
        auto* d = only_definitions.add_definitions();
        d->set_id(id);
        d->set_key(o.key);
        d->set_name(o.name);
        d->set_unit(o.unit);
        d->set_kind(static_cast<tavo::wire::ChannelKind>(o.kind));
        d->set_scale_factor(o.scale_factor);
        d->set_lookup(o.lookup);
    }
    encoded_ = std::make_shared<const std::string>(only_definitions.SerializeAsString());
    return encoded_;
}

std::vector<channels::dynamic_channel> channel_map::definitions() const {
    std::lock_guard lock(mutex_);
    std::vector<channels::dynamic_channel> out;
    for (const auto& [id, options] : channels_) out.emplace_back(id, options);
    return out;
}

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
