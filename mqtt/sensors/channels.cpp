#include "mqtt/sensors/channels.h"

namespace corvanis::monitoring_modules::mqtt::messages {

std::vector<const libi18n::i18n_msg*> sensor_messages() {
    return {&channel_active_topics(),
            &channel_bytes_payload_received(),
            &channel_count_messages_received(),
            &channel_duration_since_last_message(),
            &channel_publish_connection_time(),
            &channel_round_trip_time(),
            &channel_state(),
            &channel_subscribe_connection_time(),
            &negative_values_not_supported_by_counter_channels()};
}

}  // namespace corvanis::monitoring_modules::mqtt::messages
