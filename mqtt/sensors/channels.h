#pragma once

#include "libi18n/i18n_msg.h"
#include "libtavohelper/channels/dynamic_channel.h"

namespace corvanis::monitoring_modules::mqtt {

namespace messages {
// Channel names, translated by the host through their keys.
LIBI18N_MESSAGE(channel_active_topics, "channel.active_topics", "Active Topics")
LIBI18N_MESSAGE(channel_bytes_payload_received, "channel.bytes_payload_received",
                "Payload Received")
LIBI18N_MESSAGE(channel_count_messages_received, "channel.count_messages_received",
                "Messages Received")
LIBI18N_MESSAGE(channel_duration_since_last_message, "channel.duration_since_last_message",
                "Time Since Last Message")
LIBI18N_MESSAGE(channel_publish_connection_time, "channel.publish_connection_time",
                "Publisher Connection Time")
LIBI18N_MESSAGE(channel_round_trip_time, "channel.round_trip_time", "Round Trip Time")
LIBI18N_MESSAGE(channel_state, "channel.state", "Status")
LIBI18N_MESSAGE(channel_subscribe_connection_time, "channel.subscribe_connection_time",
                "Subscriber Connection Time")
LIBI18N_MESSAGE(negative_values_not_supported_by_counter_channels,
                "error.negative_values_not_supported_by_counter_channels",
                "Negative values are not supported by counter channels.")

// The sensors' own definitions, for catalogue checks.
std::vector<const libi18n::i18n_msg*> sensor_messages();
}  // namespace messages

namespace sensors {
// A fixed channel named by a catalogue entry.
inline libtavohelper::channels::dynamic_channel_options channel_options(
    const libi18n::i18n_msg& name, std::string unit,
    libtavohelper::channels::channel_kind kind = libtavohelper::channels::channel_kind::integer) {
    return {.key = name.key(), .name = name.default_text(), .unit = std::move(unit), .kind = kind};
}
}  // namespace sensors

}  // namespace corvanis::monitoring_modules::mqtt
