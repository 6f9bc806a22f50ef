#include "mqtt/mqtt_client_settings.h"

namespace corvanis::monitoring_modules::mqtt {

bool connection_group::operator==(const connection_group& other) const {
    return host == other.host && port == other.port && client_id == other.client_id &&
           client_id_suffix_length == other.client_id_suffix_length && username == other.username &&
           password == other.password;
}

bool mqtt_client_settings::operator==(const mqtt_client_settings& other) const {
    return connection == other.connection && session == other.session && tls == other.tls;
}

namespace {
std::uint64_t text_hash(const std::string& text) {
    return std::hash<std::string>{}(text);
}
}  // namespace

}  // namespace corvanis::monitoring_modules::mqtt

namespace mqtt = corvanis::monitoring_modules::mqtt;

std::size_t std::hash<mqtt::connection_group>::operator()(const mqtt::connection_group& g) const {
    std::uint64_t seed = 0;
    seed = mqtt::hash_combine(seed, mqtt::text_hash(g.host));
    seed = mqtt::hash_combine(seed, static_cast<std::uint64_t>(g.port));
    seed = mqtt::hash_combine(seed, mqtt::text_hash(g.client_id));
    seed = mqtt::hash_combine(seed, g.client_id_suffix_length);
    seed = mqtt::hash_combine(seed, mqtt::text_hash(g.username));
    return mqtt::hash_combine(seed, mqtt::text_hash(g.password.plain()));
}

std::size_t std::hash<mqtt::session_group>::operator()(const mqtt::session_group& g) const {
    std::uint64_t seed = 0;
    seed = mqtt::hash_combine(seed, g.keep_alive_interval);
    seed = mqtt::hash_combine(seed, g.clean_session ? 1 : 0);
    return mqtt::hash_combine(seed, g.automatic_reconnect ? 1 : 0);
}

std::size_t std::hash<mqtt::tls_group>::operator()(const mqtt::tls_group& g) const {
    std::uint64_t seed = 0;
    seed = mqtt::hash_combine(seed, g.use_tls ? 1 : 0);
    seed = mqtt::hash_combine(seed, mqtt::text_hash(g.ca_certificate));
    seed = mqtt::hash_combine(seed, mqtt::text_hash(g.client_certificate));
    seed = mqtt::hash_combine(seed, mqtt::text_hash(g.client_key));
    return mqtt::hash_combine(seed, mqtt::text_hash(g.client_key_password.plain()));
}

std::size_t std::hash<mqtt::mqtt_client_settings>::operator()(
    const mqtt::mqtt_client_settings& s) const {
    std::uint64_t seed = 0;
    seed = mqtt::hash_combine(seed, std::hash<mqtt::connection_group>{}(s.connection));
    seed = mqtt::hash_combine(seed, std::hash<mqtt::session_group>{}(s.session));
    return mqtt::hash_combine(seed, std::hash<mqtt::tls_group>{}(s.tls));
}
