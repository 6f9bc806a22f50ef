#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace corvanis::monitoring_modules::mqtt {

// What the probe connects with: the broker's address and the client's TLS material (PEM text).
struct probe_target {
    std::string host;
    std::int64_t port = 0;
    bool use_tls = false;
    std::string ca_certificate;  // empty: the server is not verified
    std::string client_certificate;
    std::string client_key;  // empty: taken from client_certificate
    std::string client_key_password;
};

struct probe_finding {
    enum class kind {
        none,          // nothing wrong seen (or no answer within the budget)
        refused,       // nothing accepts connections on the port
        unreachable,   // the TCP connect failed otherwise; reason: the system's text
        tls,           // reason: the TLS material's, the handshake's or the verification's
        tls_expected,  // a plain connection to a port that speaks TLS
    };
    kind what = kind::none;
    std::string reason;
};

// Tells why a connect failed by making one connection of its own, the way the library would:
// loads the TLS material, connects, shakes hands and verifies the server, and reads the broker's
// first answer for an alert (a missing client certificate shows only then). Sends no MQTT. Ends
// within the budget, or soon after stop() turns true. For the failure path only: it resolves
// the host and blocks.
probe_finding probe_connection(const probe_target& target, std::chrono::milliseconds budget,
                               const std::function<bool()>& stop);

}  // namespace corvanis::monitoring_modules::mqtt
