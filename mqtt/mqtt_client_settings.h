#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "liblog/log_interface.h"
#include "libtavohelper/settings/secure_string.h"

namespace corvanis::monitoring_modules::mqtt {

// Which broker and who we are there. connect_timeout is not part of the identity:
// clients that differ only in it are shared, keeping the timeout of the first.
struct connection_group {
    std::string host;
    std::int64_t port = 1883;
    std::string client_id;
    std::uint8_t client_id_suffix_length = 0;  // random characters appended at creation
    std::uint64_t connect_timeout = 10;        // seconds
    std::string username;                      // empty: none
    libtavohelper::settings::secure_string password;

    bool operator==(const connection_group& other) const;
};

struct session_group {
    std::uint64_t keep_alive_interval = 60;  // seconds
    bool clean_session = true;
    bool automatic_reconnect = true;

    bool operator==(const session_group&) const = default;
};

struct tls_group {
    bool use_tls = false;
    std::string ca_certificate;      // PEM; empty: the server certificate is not verified
    std::string client_certificate;  // PEM; empty: no client authentication
    std::string client_key;          // PEM; empty: the key is in client_certificate
    libtavohelper::settings::secure_string client_key_password;

    bool operator==(const tls_group&) const = default;
};

// Everything that identifies a broker connection, and the key of the client pool.
// Equality and hash leave out connect_timeout and logger.
struct mqtt_client_settings {
    connection_group connection;
    session_group session;
    tls_group tls;
    // The requesting sensor's log; the client adds it to its fan-out at creation and
    // holds it weakly from then on. May be empty.
    std::shared_ptr<liblog::log_interface> logger;

    bool operator==(const mqtt_client_settings& other) const;
};

// The pool's hash step: seed ^ (v + 0x9e3779b9 + (seed << 6) + (seed >> 2)), unsigned 64-bit.
constexpr std::uint64_t hash_combine(std::uint64_t seed, std::uint64_t value) noexcept {
    return seed ^ (value + 0x9e3779b9ULL + (seed << 6) + (seed >> 2));
}

}  // namespace corvanis::monitoring_modules::mqtt

template <>
struct std::hash<corvanis::monitoring_modules::mqtt::connection_group> {
    std::size_t operator()(const corvanis::monitoring_modules::mqtt::connection_group& g) const;
};
template <>
struct std::hash<corvanis::monitoring_modules::mqtt::session_group> {
    std::size_t operator()(const corvanis::monitoring_modules::mqtt::session_group& g) const;
};
template <>
struct std::hash<corvanis::monitoring_modules::mqtt::tls_group> {
    std::size_t operator()(const corvanis::monitoring_modules::mqtt::tls_group& g) const;
};
template <>
struct std::hash<corvanis::monitoring_modules::mqtt::mqtt_client_settings> {
    std::size_t operator()(const corvanis::monitoring_modules::mqtt::mqtt_client_settings& s) const;
};
